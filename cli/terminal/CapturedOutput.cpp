#include "terminal/CapturedOutput.h"

#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core.hpp>
#include <boost/log/expressions/message.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/log/trivial.hpp>
#include <boost/make_shared.hpp>

#include <algorithm>
#include <iostream>
#include <mutex>

namespace kelsrc::cli {

namespace {

namespace sinks = boost::log::sinks;

/// Text that several threads add to, cut into lines.
class Lines {
public:
    void add(const char* text, std::size_t size) {
        const std::lock_guard<std::mutex> lock(mutex);
        all.append(text, size);
    }

    std::vector<std::string> take() {
        std::string text;
        {
            const std::lock_guard<std::mutex> lock(mutex);
            text.swap(all);
        }
        std::vector<std::string> lines;
        for (std::size_t start = 0; start < text.size();) {
            const std::size_t end = std::min(text.find('\n', start), text.size());
            if (end > start) lines.push_back(text.substr(start, end - start));
            start = end + 1;
        }
        return lines;
    }

private:
    std::mutex mutex;
    std::string all;
};

class LogBackend : public sinks::basic_sink_backend<sinks::synchronized_feeding> {
public:
    explicit LogBackend(Lines& lines) : lines(lines) {}

    void consume(const boost::log::record_view& record) {
        std::string text;
        if (const auto severity =
                boost::log::extract<boost::log::trivial::severity_level>("Severity", record))
            text = std::string(boost::log::trivial::to_string(*severity)) + ": ";
        if (const auto message = boost::log::extract<std::string>("Message", record)) text += *message;
        text += '\n';
        lines.add(text.data(), text.size());
    }

private:
    Lines& lines;
};

/// A stream buffer without a buffer: each write takes the lock of the lines.
class Collector final : public std::streambuf {
public:
    Lines lines;

protected:
    int_type overflow(int_type character) override {
        if (traits_type::eq_int_type(character, traits_type::eof())) return traits_type::not_eof(character);
        const char letter = traits_type::to_char_type(character);
        lines.add(&letter, 1);
        return character;
    }
    std::streamsize xsputn(const char* text, std::streamsize size) override {
        lines.add(text, static_cast<std::size_t>(size));
        return size;
    }
};

} // namespace

struct CapturedOutput::Captured {
    Collector printed;
    Lines log;
    boost::shared_ptr<sinks::synchronous_sink<LogBackend>> sink =
        boost::make_shared<sinks::synchronous_sink<LogBackend>>(boost::make_shared<LogBackend>(log));
};

CapturedOutput::CapturedOutput()
    : captured(std::make_unique<Captured>()), previousOut(std::cout.rdbuf(&captured->printed)),
      previousErr(std::cerr.rdbuf(&captured->printed)) {
    // With a sink of ours in place the default one, which prints to standard output, stays out.
    boost::log::core::get()->add_sink(captured->sink);
}

CapturedOutput::~CapturedOutput() {
    boost::log::core::get()->remove_sink(captured->sink);
    std::cout.rdbuf(previousOut);
    std::cerr.rdbuf(previousErr);
}

std::vector<std::string> CapturedOutput::takeLog() {
    return captured->log.take();
}

std::vector<std::string> CapturedOutput::takePrinted() {
    return captured->printed.lines.take();
}

} // namespace kelsrc::cli
