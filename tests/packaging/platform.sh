#!/usr/bin/env bash
# platform.sh CMAKE COMPILER SOURCE PIPELINE BUILD: with -DKELSRC_BUNDLED_PLATFORM=OFF the library builds against a
# pipeline's own libraries, without this tree's mesh/ and platform/ sources, and calls into them.
set -euo pipefail
cmake=$1 compiler=$2 source=$3 pipeline=$4 build=$5
common=(-DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_BUILD_TYPE=Debug --log-level=WARNING)
if command -v ccache >/dev/null; then common+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache); fi
rm -rf "$build"
mkdir -p "$build/pipeline/include"

# The pipeline's headers are the interfaces alone, not the concrete meshes that this tree adds to them.
cp -r "$pipeline/." "$build/pipeline"
cp -r "$source/mesh/kel" "$source/platform/utils/utils" "$source/platform/logging/logging" \
    "$source/platform/src/src" "$build/pipeline/include"
cp "$pipeline"/../../writer/RecordingSrcLib.{h,cpp} "$build/pipeline/src"
rm "$build"/pipeline/include/kel/mesh/{DefaultMesh,DefaultIndexBuffer,KelMesh}.h
"$cmake" -S "$build/pipeline" -B "$build/pipeline-build" "${common[@]}"
"$cmake" --build "$build/pipeline-build" --parallel 2
"$cmake" --install "$build/pipeline-build" --prefix "$build/prefix" >/dev/null

# This tree without the sources of its own platform.
mkdir "$build/tree"
cp -r "$source"/{CMakeLists.txt,cmake,include,kel} "$build/tree"
"$cmake" -S "$build/tree" -B "$build/tree-build" "${common[@]}" -DKELSRC_BUNDLED_PLATFORM=OFF \
    -DCMAKE_PREFIX_PATH="$build/prefix"
"$cmake" --build "$build/tree-build" --parallel 2
"$cmake" --install "$build/tree-build" --prefix "$build/prefix" >/dev/null

# What the library takes from the pipeline it must not hold itself.
nm -D --undefined-only "$build/tree-build/lib/libkelSrc.so" >"$build/undefined"
for name in _ZN5utils19computeTriangleArea _ZN7logging6Logger14getBoostLogger _ZTIN3kel4mesh6detail22DefaultAttributeBuffer \
    _ZTIN3kel8material15MaterialClassic _ZN3src7builder10SrcBuilder6create; do
    grep -q "$name" "$build/undefined" || { echo "libkelSrc.so does not take $name from outside"; exit 1; }
done

"$cmake" -S "$build/pipeline/caller" -B "$build/caller-build" "${common[@]}" \
    -DCMAKE_PREFIX_PATH="$build/prefix"
"$cmake" --build "$build/caller-build"
"$build/caller-build/caller" | tee "$build/output"
grep -q "the pipeline's logger was asked by void kel::src::detail::addStatisticsMetaData" "$build/output"
grep -q "written by the recording library" "$build/output"
