#!/usr/bin/env bash
# complete.sh PREFIX SOURCE CLI VIEWER: every public header of the source tree, the library, the package files and, when
# CLI is 1, the command are installed, and when VIEWER is ON its page.
set -euo pipefail
prefix=$1 source=$2 cli=$3 viewer=$4
status=0
expect() {
    if ! compgen -G "$1" >/dev/null; then
        echo "not installed: $1"
        status=1
    fi
}

# Public is every header below these roots, but those whose name says that they are private (_p.h) and what the
# project's own libraries tell each other.
while read -r header; do
    expect "$prefix/include/$header"
done < <(
    for root in include/kel mesh/kel platform/utils/utils platform/logging/logging platform/src/src prepare/kel importer/kel; do
        (cd "$source/$(dirname "$root")" && find "$(basename "$root")" -name '*.h' ! -name '*_p.h' \
            ! -path 'kel/prepare/detail/*' ! -path 'kel/importer/detail/*')
    done
    cd "$source" && find kel -name '*.h' ! -name '*_p.h'
)
for file in libkelSrc.so libkelSrc.so.[0-9] cmake/kelSrc/kelSrcConfig.cmake cmake/kelSrc/kelSrcConfigVersion.cmake \
    cmake/kelSrc/kelSrcTargets.cmake pkgconfig/kelsrc.pc; do
    expect "$prefix/lib*/$file"
done
if [ "$cli" = 1 ]; then
    expect "$prefix/bin/kelsrc"
    "$prefix/bin/kelsrc" --version
fi
if [ "$viewer" = ON ]; then
    expect "$prefix/share/kelsrc/viewer.html"
fi
exit "$status"
