#include "../ModelSource.h"

#include <kel/importer/Importer.h>

#include <assimp/Importer.hpp>

#include <algorithm>
#include <set>
#include <sstream>
#include <string>

namespace kel::importer {

bool isModelExtension(const std::string& extension) {
    static const std::set<std::string> known = [] {
        // "*.3d;*.3ds;..."
        aiString list;
        Assimp::Importer().GetExtensionList(list);
        std::set<std::string> extensions;
        std::istringstream patterns(list.C_Str());
        for (std::string pattern; std::getline(patterns, pattern, ';');)
            extensions.insert(pattern.substr(std::min<std::size_t>(pattern.size(), 2)));
        return extensions;
    }();
    const std::string name =
        detail::smallLetters(extension.substr(!extension.empty() && extension[0] == '.'));
    return !name.empty() && known.count(name) != 0;
}

} // namespace kel::importer
