#pragma once

#include "Failure.h"

#include <kel/convert/Texts.h>

#include <iosfwd>
#include <mutex>
#include <string>
#include <string_view>

namespace kelsrc::cli {

/// A text from a file made fit for a terminal: control characters, which could move the cursor or change
/// colours, read \xNN; UTF-8 stays.
std::string printable(std::string_view text);

using kel::convert::counted;
using kel::convert::listed;
using kel::convert::shortNumber;

/// All talk of the command: it goes to one stream, standard error, a line per message, and shares it with a
/// status line that is redrawn below the messages. Safe from several threads.
class Messages {
public:
    enum Level { QUIET, NORMAL, VERBOSE };

    Messages(std::ostream& err, Level level, bool colour) : err(err), level(level), colour(colour) {}
    ~Messages() { setStatusLine(""); }
    Messages(const Messages&) = delete;
    Messages& operator=(const Messages&) = delete;

    void error(const Failure& failure);    ///< always shown
    void warning(const std::string& text); ///< shown unless quiet
    void info(const std::string& text);    ///< shown unless quiet
    void detail(const std::string& text);  ///< shown when verbose
    bool isVerbose() const { return level == VERBOSE; }

    /// Replaces the line that stays below all messages; an empty text takes it away. Only for terminals.
    void setStatusLine(const std::string& text);

private:
    void print(const std::string& text);
    std::string label(const char* word, const char* ansiColour) const;

    std::ostream& err;
    const Level level;
    const bool colour;
    std::mutex mutex;
    std::string statusLine;
};

} // namespace kelsrc::cli
