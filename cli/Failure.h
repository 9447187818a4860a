#pragma once

#include <kel/convert/ConvertError.h>

#include <stdexcept>
#include <string>
#include <utility>

namespace kelsrc::cli {

/// What the command's exit status says. 128 + n says that signal n ended it.
enum Status : int {
    STATUS_OK = 0,
    STATUS_FINDINGS = 1,   ///< done, but not all is well: findings, or a batch with failed files
    STATUS_USAGE = 2,      ///< the command line is wrong
    STATUS_INPUT = 3,      ///< the input cannot be read, is empty or invalid
    STATUS_NOT_WRITTEN = 4 ///< the output was not written
};

/// Ends the work on one file. Three sentences for people: what is wrong with what, and what to do about it.
class Failure : public std::runtime_error {
public:
    Failure(Status status, std::string subject, const std::string& what, std::string remedy = "")
        : std::runtime_error(what), failureStatus(status), subjectName(std::move(subject)),
          remedyText(std::move(remedy)) {}
    /// What ended a conversion, with the status that belongs to its code.
    Failure(const kel::convert::ConvertError& error);

    Status status() const { return failureStatus; }
    const std::string& subject() const { return subjectName; } ///< mostly a file; may be empty
    const std::string& remedy() const { return remedyText; }

private:
    Status failureStatus;
    std::string subjectName, remedyText;
};

/// Inside a catch block: what was thrown during the work on one file, whichever library threw it.
///
/// subject  stands before sentences that do not name their file
Failure currentFailure(const std::string& subject);

} // namespace kelsrc::cli
