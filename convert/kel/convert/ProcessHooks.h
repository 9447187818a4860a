#pragma once

#include <functional>
#include <memory>
#include <string>

namespace kel::convert {

/// For programs that handle signals: the library itself touches neither signal handlers nor standard streams.
/// A hook is called on the thread that does the work, and what it returns lives until the state that it was told
/// of has ended. An empty one is not called.
struct ProcessHooks {
    using Token = std::shared_ptr<void>;

    /// A file with this name must not outlive the process. It is told before the file is made.
    std::function<Token(const std::string& path)> onTemporaryFile;
};

} // namespace kel::convert
