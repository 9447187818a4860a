// In place of kelsrc-import: answers as a program does that a hostile model has taken over. What it does is the name
// of the model.

#include <kel/importer/detail/ServeImports.h>

#include <isolation/Fields.h>
#include <isolation/MemoryFile.h>
#include <isolation/Message.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>

#include <cmath>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <map>
#include <random>

namespace {

using namespace kel::importer;
using namespace kel::importer::detail;

constexpr int SEALS = F_SEAL_WRITE | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL;

void sendModel(const FileDescriptor& answers, const std::string& bytes, int seals, off_t size = 0) {
    const FileDescriptor file(::memfd_create("hostile", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (::write(file.get(), bytes.data(), bytes.size()) < 0) std::abort();
    if (size > 0 && ::ftruncate(file.get(), size) != 0) std::abort();
    ::fcntl(file.get(), F_ADD_SEALS, seals);
    send(answers, Message::MODEL, 0.0, "", {file.get()});
}

std::string noise(std::size_t size) {
    std::mt19937 random(7);
    std::string bytes(size, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(random());
    return bytes;
}

std::vector<FileDescriptor> kept;

using Answer = std::function<void(const FileDescriptor&)>;
const std::map<std::string, Answer> ANSWERS = {
    {"hangs", [](const FileDescriptor& answers) { send(answers, Message::STARTED); }},
    {"chatters",
     [](const FileDescriptor& answers) {
         send(answers, Message::STARTED);
         while (send(answers, Message::PROGRESS, 0.5, "reading")) {
         }
     }},
    {"exits", [](const FileDescriptor&) { ::_exit(0); }},
    {"crashes",
     [](const FileDescriptor& answers) {
         send(answers, Message::STARTED);
         ::raise(SIGKILL);
     }},
    {"noise",
     [](const FileDescriptor& answers) {
         const std::string bytes = noise(100);
         ::send(answers.get(), bytes.data(), bytes.size(), 0);
     }},
    {"short", [](const FileDescriptor& answers) { ::send(answers.get(), "", 1, 0); }},
    {"ready", [](const FileDescriptor& answers) { send(answers, Message::READY, 0.0, HELPER_VERSION); }},
    {"starts twice",
     [](const FileDescriptor& answers) {
         send(answers, Message::STARTED);
         send(answers, Message::STARTED);
     }},
    {"progress",
     [](const FileDescriptor& answers) { send(answers, Message::PROGRESS, std::nan(""), "reading"); }},
    {"stage", [](const FileDescriptor& answers) { send(answers, Message::PROGRESS, 0.5, "\x1b[2J"); }},
    {"nothing", [](const FileDescriptor& answers) { send(answers, Message::MODEL); }},
    {"unsealed", [](const FileDescriptor& answers) { sendModel(answers, noise(100), 0); }},
    {"can shrink",
     [](const FileDescriptor& answers) { sendModel(answers, noise(100), SEALS & ~F_SEAL_SHRINK); }},
    {"disk",
     [](const FileDescriptor& answers) {
         const FileDescriptor file(::open("/proc/self/exe", O_RDONLY | O_CLOEXEC));
         send(answers, Message::MODEL, 0.0, "", {file.get()});
     }},
    {"huge", [](const FileDescriptor& answers) { sendModel(answers, "", SEALS, off_t{1} << 40); }},
    {"empty", [](const FileDescriptor& answers) { sendModel(answers, "", SEALS); }},
    {"garbage", [](const FileDescriptor& answers) { sendModel(answers, noise(5000), SEALS); }},
    {"counts", [](const FileDescriptor& answers) { sendModel(answers, std::string(64, '\xFF'), SEALS); }},
    {"refusal", [](const FileDescriptor& answers) { send(answers, Message::REFUSED, 0.0, noise(50)); }},
    {"cancels",
     [](const FileDescriptor& answers) {
         send(answers, Message::REFUSED, 0.0, packed(Refusal{ImportCode::CANCELLED, "", "", ""}));
     }},
    {"killed", [](const FileDescriptor& answers) { send(answers, Message::ENDED, SIGKILL); }},
    {"segfaults", [](const FileDescriptor& answers) { send(answers, Message::ENDED, SIGSEGV); }},
    {"odd status", [](const FileDescriptor& answers) { send(answers, Message::ENDED, -1e300); }},
};

} // namespace

int main() {
    const FileDescriptor socket(HELPER_SOCKET);
    send(socket, Message::READY, 0.0, HELPER_VERSION);
    for (;;) {
        Received received = receive(socket, std::nullopt);
        if (received.state != Received::MESSAGE) return 0;
        ReadRequest request;
        ArchiveReader reader(received.message.text);
        reader(request);
        ANSWERS.at(request.name.substr(0, request.name.find('.')))(received.message.files[0]);
        kept.push_back(std::move(received.message.files[0])); // who reads hangs on
    }
}
