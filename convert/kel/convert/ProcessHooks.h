#pragma once

#include <functional>
#include <memory>
#include <string>

namespace kel::convert {

/// For programs that handle signals: the library itself touches neither signal handlers nor standard streams.
/// Each hook is called on the thread that does the work, and what it returns lives until the state that it
/// was told of has ended. Empty ones are not called.
struct ProcessHooks {
    using Token = std::shared_ptr<void>;

    /// A file with this name must not outlive the process. It is told before the file is made.
    std::function<Token(const std::string& path)> onTemporaryFile;
    /// The reader of models is about to work on this source. Some damaged files crash it, and that is an
    /// error of the file.
    std::function<Token(const std::string& source)> onImport;
};

} // namespace kel::convert
