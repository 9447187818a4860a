#pragma once

#include "Failure.h"
#include "page/ConvertToPage.h"

#include <kel/convert/Convert.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kelsrc::cli {

struct Job {
    kel::convert::Source source;
    kel::convert::Destination destination;
    bool makeFolder = false;        ///< make the destination's folder where it is missing
    std::optional<Failure> refused; ///< known before the work begins
};

struct Outcome {
    enum State { CONVERTED, FAILED, NOT_TRIED } state = NOT_TRIED;
    FileReport report;              ///< when converted
    std::optional<Failure> failure; ///< when failed
    double seconds = 0.0;
};

/// The conversions that inputs ask for, below the folder `output`, ordered by input and within a folder by
/// path. A file goes to its own name with the ending ".src", or ".html" for pages. Of a folder every file
/// with the extension of a model is taken, for pages SRC files as well, at any depth, and the folders in it
/// are kept; where there are several inputs, each folder keeps its own name, too.
///
/// Models of one folder that differ only in their extension would share one name: such files keep theirs, as
/// in "part.obj.src". Jobs that still want the same file are refused but for the first.
///
/// throws  Failure when an input folder cannot be read or has no model in it
std::vector<Job> planJobs(const std::vector<std::string>& inputs, const std::filesystem::path& output,
                          bool pages = false);

struct JobOptions {
    kel::convert::Recipe recipe;
    kel::convert::ConvertOptions convert; ///< without progress, which each job has for itself
    bool pages = false; ///< write the viewer's page with the SRC file inside; SRC files are taken as they are
};

/// Does the work of one job, on this thread.
///
/// throws  Failure; kel::convert::ConvertError
FileReport convertFile(const Job& job, const JobOptions& options,
                       const kel::convert::Progress& progress = {});

/// Runs all jobs on `threads` threads, and hands the outcomes to `onOutcome` in the order of the jobs, one at
/// a time. Makes the folders that the outputs need.
///
/// failFast  begins no further job after one has failed
void runJobs(const std::vector<Job>& jobs, const JobOptions& options, std::size_t threads, bool failFast,
             const std::function<void(std::size_t job, const char* stage, double done)>& onStage,
             const std::function<void(std::size_t job, Outcome& outcome)>& onOutcome);

} // namespace kelsrc::cli
