#pragma once

#include <iostream>
#include <sstream>
#include <string>

namespace kel::tests {

/// Catches what is written to std::cout and std::cerr while it lives.
class CapturedStreams {
public:
    CapturedStreams() : oldOut(std::cout.rdbuf(outText.rdbuf())), oldErr(std::cerr.rdbuf(errText.rdbuf())) {}
    ~CapturedStreams() {
        std::cout.rdbuf(oldOut);
        std::cerr.rdbuf(oldErr);
    }
    CapturedStreams(const CapturedStreams&) = delete;
    CapturedStreams& operator=(const CapturedStreams&) = delete;

    std::string out() const { return outText.str(); }
    std::string err() const { return errText.str(); }

private:
    std::ostringstream outText, errText;
    std::streambuf* oldOut;
    std::streambuf* oldErr;
};

} // namespace kel::tests
