#!/usr/bin/env bash
# complete.sh PREFIX SOURCE CLI: every public header of the source tree, the library, the package files and, when
# CLI is 1, the command are installed.
set -euo pipefail
prefix=$1 source=$2 cli=$3
status=0
expect() {
    if ! compgen -G "$1" >/dev/null; then
        echo "not installed: $1"
        status=1
    fi
}

# Public is every header below these roots, but those whose name says that they are private (_p.h).
while read -r root header; do
    expect "$prefix/include/$header"
done < <(
    for root in include mesh platform/utils platform/logging platform/src prepare importer; do
        if [ -d "$source/$root" ]; then
            (cd "$source/$root" && find . -name '*.h' ! -name '*_p.h' ! -path './src/*' -printf "$root %P\n")
        fi
    done
    cd "$source" && find kel -name '*.h' ! -name '*_p.h' -printf '. %p\n'
)
for file in libkelSrc.so libkelSrc.so.[0-9] cmake/kelSrc/kelSrcConfig.cmake cmake/kelSrc/kelSrcConfigVersion.cmake \
    cmake/kelSrc/kelSrcTargets.cmake pkgconfig/kelsrc.pc; do
    expect "$prefix/lib*/$file"
done
if [ "$cli" = 1 ]; then
    expect "$prefix/bin/kelsrc"
    "$prefix/bin/kelsrc" --version
fi
exit "$status"
