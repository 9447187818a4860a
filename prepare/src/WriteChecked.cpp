#include <kel/prepare/WriteChecked.h>

#include <kel/prepare/FindProblems.h>
#include <kel/src/SrcWriter.h>
#include <kel/src/default_writer/MeshToContainer.h>

#include "ContainerPreset.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace kel::prepare {

using kel::src::SrcWriter;
using kel::src::SrcWriterInput;

void write(const SrcWriterInput& input, Target target, std::ostream& out) {
    switch (target) {
    case Target::UNCOMPRESSED:
        return SrcWriter::write(input, out, SrcWriter::UNCOMPRESSED);
    case Target::POSITION_COMPRESSED:
        return SrcWriter::write(input, out, SrcWriter::POSITION_COMPRESSED);
    case Target::POSITION_NORMAL_COMPRESSED:
        return SrcWriter::write(input, out, SrcWriter::POSITION_NORMAL_COMPRESSED);
    default:
        kel::src::detail::writeMeshSrcEncoded(input, detail::presetOf(target), out);
    }
}

void writeChecked(const SrcWriterInput& input, Target target, std::ostream& out) {
    const Problems problems = findProblems(input, target, {0});
    if (problems.errors == 0) return write(input, target, out);
    const auto first =
        std::find_if(problems.findings.begin(), problems.findings.end(),
                     [](const Finding& finding) { return finding.severity == Severity::ERROR; });
    std::string text = describe(*first);
    if (problems.errors > 1) text += " (and " + std::to_string(problems.errors - 1) + " more)";
    throw std::invalid_argument(text);
}

} // namespace kel::prepare
