#pragma once

#include "terminal/Messages.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace kelsrc::cli {

/// How far the work is, as a status line with rate and time left:
///
///     model.glb: reading [=====>              ] 26 %  12.3 MB/s  4 s left
///     12 of 40 files [=====>              ] 26 %  12.3 MB/s  1:20 left
///
/// Nothing is drawn in the first second; from then on a thread of its own redraws, so that the time goes on
/// while a step reports nothing. The bar never runs backwards.
class Progress {
public:
    struct Options {
        bool enabled = false; ///< false draws nothing at all and starts no thread
        std::chrono::milliseconds delay{1000};
        std::chrono::milliseconds interval{100};
        int width = 80; ///< columns of the terminal
    };

    struct Task {
        std::string name;
        std::uint64_t bytes = 0; ///< its share of the work; 0 where that is not known
    };

    Progress(Messages& messages, std::vector<Task> tasks, const Options& options);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// What a task is doing, and how much of that, 0 to 1, is done; negative where nobody knows.
    void update(std::size_t task, const std::string& stage, double done);
    void finishTask(std::size_t task);

    /// Takes the line away; nothing is drawn afterwards.
    void finish();

private:
    void redrawUntilFinished();
    std::string line(std::chrono::steady_clock::time_point now) const;

    Messages& messages;
    const std::vector<Task> tasks;
    const Options options;
    const std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
    std::mutex mutex;
    std::condition_variable wake;
    bool finished = false;
    std::string stage;
    std::vector<double> done; ///< by task
    std::size_t tasksDone = 0;
    std::thread drawer;
};

} // namespace kelsrc::cli
