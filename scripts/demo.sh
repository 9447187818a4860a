#!/usr/bin/env bash
# scripts/demo.sh [MODEL]
#
# Converts a model into an SRC file, prints what was written, mesh by mesh, and tells how to look at it. Without MODEL
# it takes the two-cylinder engine of Debian's assimp-testmodels. Installs what is missing and builds the command first.
set -euo pipefail

usage() { sed -n '2,/^set/{/^set/d;s/^# \{0,1\}//;p;}' "${BASH_SOURCE[0]}"; }
case "${1:-}" in
    -h | --help) usage; exit 0 ;;
esac
if [ "$#" -gt 1 ]; then usage >&2; exit 2; fi
# The caller's relative path, before the folder changes.
model=${1:+$(realpath -m -- "$1")}
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/common.sh

model=${model:-/usr/share/assimp/models/glTF2/2CylinderEngine-glTF-Binary/2CylinderEngine.glb}
scripts/setup.sh demo
if [ ! -f "$model" ]; then
    say "there is no model \"$model\"; name a file, or nothing for the two-cylinder engine"
    exit 3
fi

say "building the command in build/demo"
if [ ! -f build/demo/build.ninja ]; then
    cmake -S . -B build/demo -G Ninja --log-level=WARNING -DCMAKE_BUILD_TYPE=Release -DKELSRC_USE_CCACHE=ON \
        -DKELSRC_VIEWER=ON >&2
fi
cmake --build build/demo --target kelsrc --parallel "$(build_jobs)" >&2

name=$(basename -- "$model")
target=build/demo/models/${name%.*}.src
mkdir -p build/demo/models
say "build/demo/bin/kelsrc convert \"$model\" -o \"$target\" --list"
build/demo/bin/kelsrc convert "$model" -o "$target" --list
say "that was $target; to look at it in a browser:"
say "build/demo/bin/kelsrc view \"$target\""
