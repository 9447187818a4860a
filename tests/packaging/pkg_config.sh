#!/usr/bin/env bash
# pkg_config.sh PREFIX COMPILER SOURCE BUILD: the same program with nothing but pkg-config's answers.
set -euo pipefail
prefix=$1 compiler=$2 source=$3 build=$4
rm -rf "$build"
mkdir -p "$build"
PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name kelsrc.pc)")
export PKG_CONFIG_PATH
read -ra flags <<<"$(pkg-config --cflags --libs kelsrc)"
echo "flags: ${flags[*]}"
"$compiler" -std=c++17 "$source/main.cpp" "${flags[@]}" -o "$build/outside"
LD_LIBRARY_PATH=$(pkg-config --variable=libdir kelsrc) "$build/outside"
