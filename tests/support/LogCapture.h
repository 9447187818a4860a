#pragma once

#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/log/trivial.hpp>
#include <boost/make_shared.hpp>

#include <string>
#include <vector>

namespace kel::tests {

struct LogRecord {
    int severity;
    std::string message, function, file;
    int line;
};

/// Collects the log's records while it lives.
class LogCapture {
    class Backend : public boost::log::sinks::basic_sink_backend<boost::log::sinks::synchronized_feeding> {
    public:
        void consume(const boost::log::record_view& record) {
            namespace log = boost::log;
            LogRecord entry;
            entry.severity = static_cast<int>(log::extract_or_default<log::trivial::severity_level>(
                "Severity", record, log::trivial::trace));
            entry.message = log::extract_or_default<std::string>("Message", record, std::string());
            entry.function = log::extract_or_default<std::string>("Function", record, std::string());
            entry.file = log::extract_or_default<std::string>("File", record, std::string());
            entry.line = log::extract_or_default<int>("Line", record, 0);
            records.push_back(std::move(entry));
        }
        std::vector<LogRecord> records;
    };
    using Sink = boost::log::sinks::synchronous_sink<Backend>;

public:
    LogCapture() : backend(boost::make_shared<Backend>()), sink(boost::make_shared<Sink>(backend)) {
        boost::log::core::get()->add_sink(sink);
    }
    ~LogCapture() { boost::log::core::get()->remove_sink(sink); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    const std::vector<LogRecord>& records() const { return backend->records; }
    std::vector<std::string> messages() const {
        std::vector<std::string> texts;
        for (const LogRecord& record : backend->records)
            texts.push_back(record.message);
        return texts;
    }

private:
    boost::shared_ptr<Backend> backend;
    boost::shared_ptr<Sink> sink;
};

} // namespace kel::tests
