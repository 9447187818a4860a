#!/usr/bin/env bash
# headers.sh PREFIX COMPILER: each installed header compiles as the only include of a file, without warnings.
set -euo pipefail
prefix=$1 compiler=$2
cd "$prefix/include/kelsrc"
find . -name '*.h' -printf '%P\0' | sort -z |
    xargs -0 -P 2 -I '{}' "$compiler" -std=c++17 -Wall -Wextra -Wpedantic -Werror -DKELSRC_BUNDLED_MESH=1 \
        -DBOOST_LOG_DYN_LINK -fsyntax-only -x c++ -I . -include '{}' /dev/null
echo "$(find . -name '*.h' | wc -l) headers"
