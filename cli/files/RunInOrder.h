#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <exception>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace kelsrc::cli {

/// Has `work(i)` make the result of each of `count` tasks on `threads` threads, this one among them. Hands the
/// results to `onResult(i, result)` in the order of the tasks, one at a time, and frees each behind that.
///
/// throws  what either of them throws, when the work that has begun is done
template<typename Work, typename OnResult>
void runInOrder(std::size_t count, std::size_t threads, const Work& work, const OnResult& onResult) {
    std::vector<std::optional<std::invoke_result_t<Work, std::size_t>>> results(count);
    std::atomic<std::size_t> next{0};
    std::mutex mutex;
    std::size_t handedOn = 0;
    std::exception_ptr failure;
    const auto runTasks = [&] {
        try {
            for (std::size_t i; (i = next++) < count;) {
                auto result = work(i);
                const std::lock_guard<std::mutex> lock(mutex);
                results[i] = std::move(result);
                for (; handedOn < count && results[handedOn] && !failure; results[handedOn++].reset())
                    onResult(handedOn, *results[handedOn]);
            }
        } catch (...) {
            const std::lock_guard<std::mutex> lock(mutex);
            failure = std::current_exception();
            next = count;
        }
    };
    std::vector<std::thread> others;
    try {
        while (others.size() + 1 < std::min(threads, count))
            others.emplace_back(runTasks);
    } catch (const std::system_error&) {
        // The system has no more threads: those that there are do the work.
    }
    runTasks();
    for (auto& thread : others)
        thread.join();
    if (failure) std::rethrow_exception(failure);
}

} // namespace kelsrc::cli
