#!/usr/bin/env bash
# complete.sh PREFIX CLI VIEWER: the library, the package files and, when CLI is 1, the command are installed, and when
# VIEWER is ON its page.
set -euo pipefail
prefix=$1 cli=$2 viewer=$3
status=0
expect() {
    if ! compgen -G "$1" >/dev/null; then
        echo "not installed: $1"
        status=1
    fi
}

for file in libkelSrc.so libkelSrc.so.[0-9] cmake/kelSrc/kelSrcConfig.cmake cmake/kelSrc/kelSrcConfigVersion.cmake \
    cmake/kelSrc/kelSrcTargets.cmake pkgconfig/kelsrc.pc; do
    expect "$prefix/lib*/$file"
done
if [ "$cli" = 1 ]; then
    expect "$prefix/bin/kelsrc"
    expect "$prefix/libexec/kelsrc/kelsrc-import"
    "$prefix/bin/kelsrc" --version
fi
if [ "$viewer" = ON ]; then
    expect "$prefix/share/kelsrc/viewer.html"
fi
exit "$status"
