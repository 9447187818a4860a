#pragma once

#include "../ProgressReporter.h"
#include "Content.h"
#include "Findings.h"

#include <string>

namespace kel::importer::detail {

/// Looks for what Assimp does not survive, reads as something else, or repairs without a word: content of
/// another kind than the name says, files that end early, counts that the file cannot hold, indices out of
/// range. Linear in the size of the file, in constant memory (glTF: in that of its JSON).
///
/// throws  ImportError
Findings checkBeforeReading(const ModelSource& source, ProgressReporter& progress);

/// The checks of single formats; called for content of that kind only.
void checkWavefront(const ModelSource& source, const Content& content, ProgressReporter& progress,
                    Findings& findings);
void checkPly(const ModelSource& source, const Content& content);
void checkStl(const ModelSource& source, const Content& content);
void checkOff(const ModelSource& source, const Content& content, Findings& findings);

/// Refuses text whose braces or XML elements are nested deeper than the readers' recursion can follow.
void checkNesting(const ModelSource& source, const Content& content, bool xml);

/// Content that a few bytes give away.
enum class Kind { UNKNOWN, OTHER, GLB, GLTF, PLY, OFF, FBX, BLEND, XML, ZIP, COB, X };
struct Recognised {
    Kind kind = Kind::UNKNOWN;
    std::string name; ///< for people; empty when unknown
};
Recognised recognise(const Content& content);

/// The extension that content of its kind has, or "" when nothing gives it away.
std::string guessExtension(const Content& content);

/// throws  ImportError "wrong-content" when the extension promises another kind of content
void checkKind(const ModelSource& source, const Content& content, const Recognised& recognised);

} // namespace kel::importer::detail
