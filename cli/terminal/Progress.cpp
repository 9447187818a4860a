#include "terminal/Progress.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

namespace kelsrc::cli {

namespace {

constexpr int BAR_WIDTH = 24;
// Below this the time left would be a guess from too little.
constexpr double ENOUGH_TO_TELL = 0.02;

/// The part of a conversion that a stage is, measured on large models; what the importer does between reading
/// and preparing has several names.
struct Part {
    double first, last;
};

Part partOf(const std::string& stage) {
    if (stage == "checking") return {0.0, 0.05};
    if (stage == "reading") return {0.05, 0.6};
    if (stage == "preparing") return {0.8, 0.85};
    if (stage == "writing") return {0.85, 1.0};
    return {0.6, 0.8};
}

/// The first `columns` characters, counted as UTF-8 code points: a longer line would wrap and pile up.
std::string cut(const std::string& text, int columns) {
    int used = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool startsCharacter = (static_cast<unsigned char>(text[i]) & 0xc0u) != 0x80;
        if (startsCharacter && ++used > columns) return text.substr(0, i);
    }
    return text;
}

std::string duration(double seconds) {
    const auto whole = static_cast<long long>(std::ceil(seconds));
    if (whole < 60) return std::to_string(whole) + " s";
    const std::string rest = std::to_string(whole % 60);
    return std::to_string(whole / 60) + ':' + (rest.size() < 2 ? "0" : "") + rest;
}

} // namespace

Progress::Progress(Messages& messages, std::vector<Task> allTasks, const Options& options)
    : messages(messages), tasks(std::move(allTasks)), options(options), done(tasks.size(), 0.0) {
    if (options.enabled) drawer = std::thread([this] { redrawUntilFinished(); });
}

Progress::~Progress() {
    finish();
}

void Progress::update(std::size_t task, const std::string& newStage, double stageDone) {
    if (!options.enabled) return;
    const Part part = partOf(newStage);
    const double inside = stageDone > 0.0 ? std::min(stageDone, 1.0) : 0.0; // 0 for NaN, too
    const std::lock_guard<std::mutex> lock(mutex);
    stage = newStage;
    done[task] = std::max(done[task], part.first + (part.last - part.first) * inside);
}

void Progress::finishTask(std::size_t task) {
    const std::lock_guard<std::mutex> lock(mutex);
    done[task] = 1.0;
    ++tasksDone;
}

void Progress::finish() {
    {
        const std::lock_guard<std::mutex> lock(mutex);
        finished = true;
    }
    wake.notify_all();
    if (!drawer.joinable()) return;
    drawer.join();
    messages.setStatusLine("");
}

void Progress::redrawUntilFinished() {
    std::unique_lock<std::mutex> lock(mutex);
    auto next = start + options.delay;
    while (!wake.wait_until(lock, next, [this] { return finished; })) {
        const auto now = std::chrono::steady_clock::now();
        const std::string text = line(now);
        lock.unlock();
        messages.setStatusLine(text);
        lock.lock();
        next = now + options.interval;
    }
}

std::string Progress::line(std::chrono::steady_clock::time_point now) const {
    double all = 0.0, ready = 0.0, bytes = 0.0;
    for (std::size_t i = 0; i < tasks.size(); ++i) {
        // One more byte each, so that files whose size is not known count, too.
        const double share = static_cast<double>(tasks[i].bytes) + 1.0;
        all += share;
        ready += share * done[i];
        bytes += static_cast<double>(tasks[i].bytes) * done[i];
    }
    const double part = all > 0.0 ? ready / all : 0.0;

    std::string text = tasks.size() == 1
                           ? printable(tasks[0].name) + ": " + stage
                           : std::to_string(tasksDone) + " of " + std::to_string(tasks.size()) + " files";
    const int filled = static_cast<int>(part * BAR_WIDTH);
    text += " [" + std::string(static_cast<std::size_t>(filled), '=');
    if (filled < BAR_WIDTH) text += '>' + std::string(static_cast<std::size_t>(BAR_WIDTH - filled - 1), ' ');
    text += "] " + std::to_string(static_cast<int>(part * 100.0)) + " %";

    const double seconds = std::chrono::duration<double>(now - start).count();
    if (part < ENOUGH_TO_TELL || seconds <= 0.0) {
        text += "  " + std::to_string(static_cast<long long>(seconds)) + " s";
    } else {
        char rate[32];
        std::snprintf(rate, sizeof rate, "%.1f", bytes / seconds / 1e6);
        text += "  " + std::string(rate) + " MB/s  " + duration(seconds * (1.0 - part) / part) + " left";
    }
    return cut(text, options.width - 1);
}

} // namespace kelsrc::cli
