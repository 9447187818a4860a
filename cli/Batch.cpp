#include "Batch.h"

#include <kel/src/encoding/EncodingPresets.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <new>
#include <set>
#include <system_error>
#include <thread>
#include <utility>

namespace kelsrc::cli {

namespace {

namespace fs = std::filesystem;

struct Planned {
    fs::path input;
    fs::path folder; ///< of the output, relative
};

std::uint64_t sizeOf(const fs::path& file) {
    std::error_code error;
    const auto size = fs::file_size(file, error);
    return error ? 0 : size;
}

/// Its name without a trailing slash, and not "." or "..".
fs::path ownName(const fs::path& folder) {
    std::error_code error;
    const fs::path whole = fs::canonical(folder, error);
    return error ? folder.filename() : whole.filename();
}

void collect(const fs::path& folder, const fs::path& prefix, bool withSrc, std::vector<Planned>& planned) {
    std::vector<fs::path> found;
    try {
        for (const auto& entry : fs::recursive_directory_iterator(folder)) {
            const std::string extension = entry.path().extension().string();
            if (entry.is_regular_file() &&
                (kel::importer::isModelExtension(extension) || (withSrc && extension == ".src")))
                found.push_back(entry.path());
        }
    } catch (const fs::filesystem_error& error) {
        throw Failure(STATUS_INPUT, folder.string(),
                      "cannot be searched for models: " + error.code().message());
    }
    if (found.empty())
        throw Failure(STATUS_INPUT, folder.string(), "there is no model in this folder",
                      "Name a file if it is a model without the usual extension.");
    std::sort(found.begin(), found.end());
    for (const auto& file : found)
        planned.push_back({file, prefix / file.parent_path().lexically_relative(folder)});
}

Outcome runJob(const Job& job, const ConvertOptions& options, const StageCallback& onStage) {
    Outcome outcome;
    outcome.state = Outcome::FAILED;
    const auto start = std::chrono::steady_clock::now();
    try {
        if (job.refused) throw *job.refused;
        if (job.makeFolder) {
            std::error_code error;
            fs::create_directories(job.target.file.parent_path(), error);
            if (error)
                throw Failure(STATUS_NOT_WRITTEN, job.target.file.parent_path().string(),
                              "the folder cannot be made: " + error.message());
        }
        outcome.report = convert(job.source, job.target, options, onStage);
        outcome.state = Outcome::CONVERTED;
    } catch (const Failure& failure) {
        outcome.failure = failure;
    } catch (const std::bad_alloc&) {
        outcome.failure = Failure(STATUS_INPUT, job.source.name(), "needs more memory than there is",
                                  "Free some memory, or split the model.");
    } catch (const std::exception& error) {
        outcome.failure = Failure(STATUS_NOT_WRITTEN, job.source.name(),
                                  std::string("unexpected: ") + error.what(), "Please report this.");
    }
    outcome.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return outcome;
}

} // namespace

std::vector<Job> planJobs(const std::vector<std::string>& inputs, const fs::path& output, bool pages) {
    std::vector<Planned> planned;
    for (const auto& input : inputs) {
        if (fs::is_directory(input)) {
            collect(input, inputs.size() > 1 ? ownName(input) : fs::path(), pages, planned);
        } else {
            planned.push_back({input, {}});
        }
    }

    const auto target = [&](const Planned& file, bool keepExtension) {
        fs::path name = keepExtension ? file.input.filename() : file.input.stem();
        name += pages ? ".html" : ".src";
        return (output / file.folder / name).lexically_normal();
    };
    std::map<fs::path, std::set<fs::path>> wanted;
    for (const auto& file : planned)
        wanted[target(file, false)].insert(file.input.filename());

    std::vector<Job> jobs;
    std::map<fs::path, fs::path> taken;
    for (const auto& file : planned) {
        Job job;
        job.source.file = file.input;
        job.target.file = target(file, wanted[target(file, false)].size() > 1);
        job.bytes = sizeOf(file.input);
        job.makeFolder = job.target.file.has_parent_path();
        const auto [owner, isNew] = taken.emplace(job.target.file, file.input);
        if (!isNew) {
            job.refused = Failure(STATUS_NOT_WRITTEN, file.input.string(),
                                  "would be written to " + job.target.file.string() + ", where " +
                                      owner->second.string() + " goes",
                                  "Convert the two into different folders.");
        }
        jobs.push_back(std::move(job));
    }
    return jobs;
}

void runJobs(const std::vector<Job>& jobs, const ConvertOptions& options, std::size_t threads, bool failFast,
             const std::function<void(std::size_t, const std::string&, double)>& onStage,
             const std::function<void(std::size_t, Outcome&)>& onOutcome) {
    // The registry of presets fills on first use and is not made for several threads.
    kel::src::detail::getSRCEncodingPreset("default");
    kel::src::detail::getSRCEncodingPreset("CMP1");

    std::vector<std::optional<Outcome>> outcomes(jobs.size());
    std::atomic<std::size_t> next{0};
    std::atomic<bool> stopped{false};
    std::mutex mutex;
    std::size_t handedOn = 0;
    const auto work = [&] {
        for (std::size_t i; (i = next++) < jobs.size();) {
            Outcome outcome;
            if (!stopped)
                outcome = runJob(jobs[i], options,
                                 [&](const std::string& stage, double done) { onStage(i, stage, done); });
            if (failFast && outcome.state == Outcome::FAILED) stopped = true;
            const std::lock_guard<std::mutex> lock(mutex);
            outcomes[i] = std::move(outcome);
            for (; handedOn < jobs.size() && outcomes[handedOn]; ++handedOn) {
                onOutcome(handedOn, *outcomes[handedOn]);
                outcomes[handedOn]->report = {};
            }
        }
    };
    std::vector<std::thread> others;
    for (std::size_t i = 1; i < std::min(threads, jobs.size()); ++i)
        others.emplace_back(work);
    work();
    for (auto& thread : others)
        thread.join();
}

} // namespace kelsrc::cli
