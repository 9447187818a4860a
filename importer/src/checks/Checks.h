#pragma once

#include "Content.h"

#include <kel/importer/Importer.h>

#include <memory>
#include <string>
#include <vector>

namespace kel::importer::detail {

class GltfDocument;

/// What the checks learned on the way that the reader does not tell.
struct Findings {
    std::vector<Dropped> dropped;
    std::vector<std::string> notes;
    /// For glTF 2 only.
    std::shared_ptr<const GltfDocument> gltf;
    /// What the reader gets in place of the model, when not empty, followed by these bytes of the model.
    std::string front;
    std::uint64_t tailOffset = 0;
    std::uint64_t tailLength = 0;
};

/// Looks for what Assimp does not survive, reads as something else, or repairs without a word: content of
/// another kind than the name says, files that end early, counts that the file cannot hold, indices out of
/// range. Linear in the size of the file, in constant memory (glTF: in that of its JSON).
///
/// throws  ImportError
Findings checkBeforeReading(const Source& source, Stages& stages);

/// The checks of single formats; called for content of that kind only.
void checkWavefront(const Source& source, const Content& content, Stages& stages, Findings& findings);
void checkPly(const Source& source, const Content& content);
void checkStl(const Source& source, const Content& content);
void checkOff(const Source& source, const Content& content, Findings& findings);

/// Refuses text whose braces or XML elements are nested deeper than the readers' recursion can follow.
void checkNesting(const Source& source, const Content& content, bool xml);

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
void checkKind(const Source& source, const Content& content, const Recognised& recognised);

} // namespace kel::importer::detail
