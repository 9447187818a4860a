#pragma once

#include "Failure.h"
#include "terminal/Messages.h"
#include "terminal/Signals.h"

#include <string>

namespace kelsrc::cli {

/// Around a call of the importer: some damaged files crash Assimp, and that is an error of the file.
struct ImporterCrash : CrashMessage {
    explicit ImporterCrash(const std::string& name)
        : CrashMessage("kelsrc: error: " + printable(name) +
                           ": Assimp, which reads models, crashed on this file\n"
                           "  It is damaged, or of a kind that this Assimp cannot read: export it again, "
                           "best as glTF. "
                           "The run ends here, and nothing was written for this file.\n",
                       STATUS_INPUT) {}
};

} // namespace kelsrc::cli
