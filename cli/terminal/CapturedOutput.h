#pragma once

#include <memory>
#include <streambuf>
#include <string>
#include <vector>

namespace kelsrc::cli {

/// While it lives, nothing that the libraries say reaches the terminal by itself: log records and lines on
/// the standard streams are collected, so that standard output holds data only. For the whole process, once.
class CapturedOutput {
public:
    CapturedOutput();
    ~CapturedOutput();
    CapturedOutput(const CapturedOutput&) = delete;
    CapturedOutput& operator=(const CapturedOutput&) = delete;

    /// What was said since the last call, a line each: records of the log as "warning: ...".
    std::vector<std::string> takeLog();
    /// Lines on std::cout and std::cerr.
    std::vector<std::string> takePrinted();

private:
    struct Captured;

    std::unique_ptr<Captured> captured;
    std::streambuf* previousOut;
    std::streambuf* previousErr;
};

} // namespace kelsrc::cli
