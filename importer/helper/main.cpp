// kelsrc-import: started by libkelSrcImporter, not by people. Reads models in children of its own, so that a damaged
// one ends a child and nothing else.

#include <kel/importer/detail/ServeImports.h>

int main() {
    return kel::importer::detail::serveImports();
}
