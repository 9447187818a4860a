#!/usr/bin/env bash
# install.sh CMAKE BUILD PREFIX: installs the build, then moves the installed tree to PREFIX, so that whatever
# uses it there proves that it can be moved.
set -euo pipefail
cmake=$1 build=$2 prefix=$3
rm -rf "$prefix" "$prefix.first"
mkdir -p "$prefix.first"
"$cmake" --install "$build" --prefix "$prefix.first"
mv "$prefix.first" "$prefix"
