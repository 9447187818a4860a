#include "Progress.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace kelsrc::cli {

namespace {

constexpr int BAR_WIDTH = 24;

/// The first `columns` characters, counted as UTF-8 code points: a longer line would wrap and pile up.
std::string cut(const std::string& text, int columns) {
    int used = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool startsCharacter = (static_cast<unsigned char>(text[i]) & 0xc0u) != 0x80;
        if (startsCharacter && ++used > columns) return text.substr(0, i);
    }
    return text;
}

} // namespace

Progress::Progress(Messages& messages, std::string subject, const Options& options)
    : messages(messages), subject(std::move(subject)), options(options) {
    if (options.enabled) drawer = std::thread([this] { redrawUntilFinished(); });
}

Progress::~Progress() {
    finish();
}

void Progress::update(const std::string& newStage, double newDone) {
    if (!options.enabled) return;
    if (std::isnan(newDone)) newDone = -1.0;
    const std::lock_guard<std::mutex> lock(mutex);
    done = newStage == stage ? std::max(done, newDone) : newDone;
    stage = newStage;
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
    std::string text = printable(subject) + ": " + stage;
    if (done >= 0.0) {
        const double part = std::min(done, 1.0);
        const int filled = static_cast<int>(part * BAR_WIDTH);
        text += " [" + std::string(static_cast<std::size_t>(filled), '=');
        if (filled < BAR_WIDTH)
            text += '>' + std::string(static_cast<std::size_t>(BAR_WIDTH - filled - 1), ' ');
        text += "] " + std::to_string(static_cast<int>(part * 100.0)) + " %";
    }
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(now - start).count();
    text += "  " + std::to_string(seconds) + " s";
    return cut(text, options.width - 1);
}

} // namespace kelsrc::cli
