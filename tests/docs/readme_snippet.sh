#!/usr/bin/env bash
# readme_snippet.sh README PREFIX CMAKE COMPILER BUILD: the README's C++ program and its CMakeLists.txt, exactly as they
# stand there, build against the installed package and write a file.
set -euo pipefail
readme=$1 prefix=$2 cmake=$3 compiler=$4 build=$5
block() { awk -v fence="\`\`\`$1" '$0 == "```" { inside = 0 } inside { print } $0 == fence { inside = 1 }' "$readme"; }
rm -rf "$build"
mkdir -p "$build"
block cpp >"$build/main.cpp"
block cmake >"$build/CMakeLists.txt"
"$cmake" -S "$build" -B "$build/build" -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_FLAGS="-Wall -Wextra -Werror" \
    -DCMAKE_PREFIX_PATH="$prefix"
"$cmake" --build "$build/build"
cd "$build"
build/first
# An SRC file begins with 23 and 42.
[ "$(od -An -tu4 -N8 first.src | tr -s ' ')" = " 23 42" ]
