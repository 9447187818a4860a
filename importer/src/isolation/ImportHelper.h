#pragma once

#include "Message.h"

#include <mutex>
#include <optional>
#include <string>

namespace kel::importer::detail {

/// The program that forks a child for each model, one for this process, started when it is first needed. May be used
/// by several threads.
class ImportHelper {
public:
    static ImportHelper& ofThisProcess();
    ~ImportHelper();

    /// Asks for a model to be read.
    ///
    /// request   a ReadRequest
    /// content   the bytes of a model in memory, or -1
    /// obstacle  gets the reason when there is no helper to ask
    /// returns   where the answers come from; closing it ends the reader. Nothing where there is no helper.
    /// throws    std::system_error
    std::optional<FileDescriptor> read(const std::string& request, int content, std::string& obstacle);

    /// To be called when a helper has not answered at all: the next model gets a new one.
    void discard();

private:
    std::mutex mutex;
    std::string program; ///< that was started
    std::string failure; ///< why it cannot serve; it is not tried again
    FileDescriptor socket;
    pid_t process = -1;
    FileDescriptor handle; ///< of the process, so that no other one is meant
    pid_t owner = -1;      ///< the process that started it; a fork of that starts its own

    bool start();
    void stop();
};

} // namespace kel::importer::detail
