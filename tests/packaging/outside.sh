#!/usr/bin/env bash
# outside.sh PREFIX CMAKE COMPILER SOURCE BUILD: an outside project finds the installed package, builds and runs.
set -euo pipefail
prefix=$1 cmake=$2 compiler=$3 source=$4 build=$5
rm -rf "$build"
"$cmake" -S "$source" -B "$build" -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_PREFIX_PATH="$prefix"
grep -F "kelSrc_DIR:PATH=$prefix/" "$build/CMakeCache.txt"
"$cmake" --build "$build"
"$build/outside"
