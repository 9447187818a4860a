#include "files/ConvertJobs.h"

#include "files/OutputFile.h"
#include "files/RunInOrder.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <map>
#include <set>
#include <system_error>
#include <utility>

namespace kelsrc::cli {

namespace {

namespace fs = std::filesystem;

struct Planned {
    fs::path input;
    fs::path folder; ///< of the output, relative
};

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

Outcome runJob(const Job& job, const JobOptions& options, const kel::convert::Progress& progress) {
    Outcome outcome;
    outcome.state = Outcome::FAILED;
    const auto start = std::chrono::steady_clock::now();
    try {
        if (job.refused) throw *job.refused;
        if (job.makeFolder) {
            const fs::path folder = job.destination.file.parent_path();
            std::error_code error;
            fs::create_directories(folder, error);
            if (error)
                throw Failure(STATUS_NOT_WRITTEN, folder.string(),
                              "the folder cannot be made: " + error.message());
        }
        outcome.report = convertFile(job, options, progress);
        outcome.state = Outcome::CONVERTED;
    } catch (...) {
        outcome.failure = currentFailure(job.source.shownName());
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
        job.destination.file = target(file, wanted[target(file, false)].size() > 1);
        job.makeFolder = job.destination.file.has_parent_path();
        const auto [owner, isNew] = taken.emplace(job.destination.file, file.input);
        if (!isNew)
            job.refused = Failure(STATUS_NOT_WRITTEN, file.input.string(),
                                  "would be written to " + job.destination.file.string() + ", where " +
                                      owner->second.string() + " goes",
                                  "Convert the two into different folders.");
        jobs.push_back(std::move(job));
    }
    return jobs;
}

FileReport convertFile(const Job& job, const JobOptions& options, const kel::convert::Progress& progress) {
    kel::convert::ConvertOptions convertOptions = options.convert;
    convertOptions.progress = progress;
    convertOptions.hooks = signalHooks();
    if (options.pages) return convertToPage(job.source, options.recipe, job.destination, convertOptions);
    return convert(job.source, options.recipe, job.destination, convertOptions);
}

void runJobs(const std::vector<Job>& jobs, const JobOptions& options, std::size_t threads, bool failFast,
             const std::function<void(std::size_t, const char*, double)>& onStage,
             const std::function<void(std::size_t, Outcome&)>& onOutcome) {
    std::atomic<bool> stopped{false};
    const auto work = [&](std::size_t i) {
        Outcome outcome;
        if (!stopped)
            outcome = runJob(jobs[i], options, [&](const char* stage, double done) {
                onStage(i, stage, done);
                return true;
            });
        if (failFast && outcome.state == Outcome::FAILED) stopped = true;
        return outcome;
    };
    runInOrder(jobs.size(), threads, work, onOutcome);
}

} // namespace kelsrc::cli
