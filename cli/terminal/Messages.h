#pragma once

#include "Failure.h"

#include <kel/convert/Texts.h>

#include <iosfwd>
#include <mutex>
#include <string>
#include <string_view>

namespace kelsrc::cli {

/// What a stream can show.
struct Terminal {
    bool isTerminal = false; ///< moving the cursor works
    bool colour = false;
    int width = 80; ///< columns
};

/// Only std::cout and std::cerr can be terminals. NO_COLOR, when set and not empty, takes the colours away;
/// TERM=dumb and a missing TERM make a terminal as good as a file.
Terminal terminalOf(const std::ostream& stream);

/// A text from a file made fit for a terminal: control characters, which could move the cursor or change
/// colours, read \xNN; UTF-8 stays.
std::string printable(std::string_view text);

/// The known word that `word` was most likely meant to be; empty when none is near. Near is: at most a third
/// of the letters (at least two) inserted, left out, changed or swapped with a neighbour, or a known word
/// that starts with it.
std::string nearestWord(const std::string& word, const std::vector<std::string>& known);

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
