#include "Checks.h"

#include "../gltf/GltfFile.h"

namespace kel::importer::detail {

Findings checkBeforeReading(const ModelSource& source, ProgressReporter& progress) {
    progress.report("checking", 0.0);
    Findings findings;
    const Content content(source);
    const Recognised recognised = recognise(content);
    checkKind(source, content, recognised);

    const std::string extension = source.extension();
    if (recognised.kind == Kind::GLB || recognised.kind == Kind::GLTF || extension == "gltf") {
        findings.gltf = readGltf(source, content, recognised.kind == Kind::GLB, findings);
    } else if (recognised.kind == Kind::PLY) {
        checkPly(source, content);
    } else if (extension == "obj") {
        checkWavefront(source, content, progress, findings);
    } else if (extension == "stl") {
        checkStl(source, content);
    } else if (extension == "off" || recognised.kind == Kind::OFF) {
        checkOff(source, content, findings);
    } else if (recognised.kind == Kind::XML) {
        checkNesting(source, content, true);
    } else if (recognised.kind == Kind::UNKNOWN || recognised.kind == Kind::X) {
        checkNesting(source, content, false);
    }
    progress.report("checking", 1.0);
    return findings;
}

} // namespace kel::importer::detail
