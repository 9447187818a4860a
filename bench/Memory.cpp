#include "Scenes.h"

#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>

namespace kel::bench {

namespace {

std::size_t statusKilobytes(const std::string& field) {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        if (word == field) {
            std::size_t kilobytes = 0;
            status >> kilobytes;
            return kilobytes;
        }
    }
    return 0;
}

} // namespace

std::size_t peakMemoryOfCall(void (*call)(void*), void* argument) {
    int channel[2];
    if (pipe(channel) != 0) throw std::runtime_error("no pipe for the memory measurement");
    const pid_t child = fork();
    if (child < 0) throw std::runtime_error("no process for the memory measurement");
    if (child == 0) {
        malloc_trim(0); // pages that the heap keeps would hide what the call takes
        std::ofstream("/proc/self/clear_refs") << 5 << std::flush; // the peak starts anew
        const std::size_t before = statusKilobytes("VmRSS:");
        call(argument);
        const std::size_t bytes = (statusKilobytes("VmHWM:") - before) * 1024;
        const bool sent = write(channel[1], &bytes, sizeof bytes) == sizeof bytes;
        _exit(sent ? 0 : 1);
    }
    close(channel[1]);
    std::size_t bytes = 0;
    const bool received = read(channel[0], &bytes, sizeof bytes) == sizeof bytes;
    close(channel[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (!received || status != 0) throw std::runtime_error("the memory measurement's process failed");
    return bytes;
}

} // namespace kel::bench
