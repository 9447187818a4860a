#pragma once

#include "Messages.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace kelsrc::cli {

/// How far the work is, as a status line: "model.glb: import [=====>    ] 52 %  3 s". Nothing is drawn in the
/// first second; from then on a thread of its own redraws, so that the seconds go on while a step reports
/// nothing.
class Progress {
public:
    struct Options {
        bool enabled = false; ///< false draws nothing at all and starts no thread
        std::chrono::milliseconds delay{1000};
        std::chrono::milliseconds interval{100};
        int width = 80; ///< columns of the terminal
    };

    Progress(Messages& messages, std::string subject, const Options& options);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// `done` from 0 to 1; a negative number is a stage whose end is not known. Within one stage the bar
    /// never runs backwards.
    void update(const std::string& stage, double done);

    /// Takes the line away; nothing is drawn afterwards.
    void finish();

private:
    void redrawUntilFinished();
    std::string line(std::chrono::steady_clock::time_point now) const;

    Messages& messages;
    const std::string subject;
    const Options options;
    const std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
    std::mutex mutex;
    std::condition_variable wake;
    bool finished = false;
    std::string stage;
    double done = -1.0;
    std::thread drawer;
};

} // namespace kelsrc::cli
