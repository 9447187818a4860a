#!/usr/bin/env bash
# options.sh CMAKE COMPILER SOURCE BUILD: configures every sensible combination of options, builds none, and looks at
# which parts there are. One build folder serves all, since finding the compiler takes longest.
set -euo pipefail
cmake=$1 compiler=$2 source=$3 build=$4
rm -rf "$build"
mkdir -p "$build/platform"
defaults=(-DKELSRC_BUNDLED_PLATFORM=ON -DKELSRC_BUILD_PREPARE=ON -DKELSRC_BUILD_IMPORTER=ON -DKELSRC_BUILD_CONVERT=ON
    -DKELSRC_BUILD_CLI=ON -DKELSRC_BUILD_TESTS=OFF -DKELSRC_BUILD_BENCH=OFF -DKELSRC_VIEWER=OFF
    -DKELSRC_SANITIZE=OFF -DKELSRC_FUZZ=OFF)
status=0

missing=none
if [ ! -e "$source/convert/CMakeLists.txt" ]; then missing=kelsrc_convert; fi

# A pipeline's packages, as far as configuring looks at them.
platform_package() {
    printf 'add_library(%s INTERFACE IMPORTED)\n' "$2" >"$build/platform/$1Config.cmake"
}
platform_package kelMesh kel::mesh
platform_package kelStructure kel::structure
platform_package kelUtils kel::utils
platform_package kelLogging kel::logging
platform_package kelSrcLib src::src

configure() {
    "$cmake" -S "$source" -B "$build/tree" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_PREFIX_PATH="$build/platform" \
        -Wno-dev "${defaults[@]}" "$@" >"$build/output" 2>&1
}

complain() {
    echo "$1"
    status=1
}

# expect "PARTS" OPTION...: configuring succeeds, and of all the programs and libraries there are PARTS.
known='kelSrc|kelsrc_prepare|kelsrc_importer|kelsrc_convert|kelsrc|test_container|test_prepare|test_importer|test_cli|kelsrc_bench|fuzz_read'
expect() {
    local wanted found
    wanted=$(tr ' ' '\n' <<<"$1" | grep -vx "$missing" | LC_ALL=C sort | xargs)
    shift
    if ! configure "$@"; then
        complain "does not configure: $*"
        cat "$build/output"
        return
    fi
    found=$("$cmake" --build "$build/tree" --target help | sed -nE "s/^($known): phony$/\1/p" | LC_ALL=C sort -u | xargs)
    [ "$found" = "$wanted" ] || complain "$*: expected \"$wanted\", found \"$found\""
}

# refuse "SENTENCE" OPTION...: configuring fails and says why.
refuse() {
    local sentence=$1
    shift
    if configure "$@"; then
        complain "configures, but should not: $*"
    elif ! tr '\n' ' ' <"$build/output" | tr -s ' ' | grep -qF -- "$sentence"; then
        complain "$*: does not say \"$sentence\""
        cat "$build/output"
    fi
}

for prepare in ON OFF; do
    for importer in ON OFF; do
        for convert in ON OFF; do
            for cli in ON OFF; do
                parts=kelSrc
                if [ $prepare = ON ]; then parts+=' kelsrc_prepare'; fi
                if [ $importer = ON ]; then parts+=' kelsrc_importer'; fi
                if [ $prepare$importer$convert = ONONON ]; then
                    parts+=' kelsrc_convert'
                    if [ $cli = ON ]; then parts+=' kelsrc'; fi
                fi
                expect "$parts" -DKELSRC_BUILD_PREPARE=$prepare -DKELSRC_BUILD_IMPORTER=$importer \
                    -DKELSRC_BUILD_CONVERT=$convert -DKELSRC_BUILD_CLI=$cli
            done
        done
    done
done

tests='test_container fuzz_read'
expect "kelSrc kelsrc_prepare kelsrc_importer kelsrc_convert kelsrc test_prepare test_importer test_cli kelsrc_bench $tests" \
    -DKELSRC_BUILD_TESTS=ON -DKELSRC_BUILD_BENCH=ON
expect "kelSrc kelsrc_prepare kelsrc_importer kelsrc_convert kelsrc test_prepare test_importer test_cli $tests" \
    -DKELSRC_BUILD_TESTS=ON -DKELSRC_SANITIZE=ON
expect "kelSrc kelsrc_prepare kelsrc_importer kelsrc_convert test_prepare test_importer $tests" \
    -DKELSRC_BUILD_TESTS=ON -DKELSRC_BUILD_CLI=OFF
expect "kelSrc kelsrc_importer test_importer $tests" -DKELSRC_BUILD_TESTS=ON -DKELSRC_BUILD_PREPARE=OFF
expect "kelSrc kelsrc_prepare test_prepare $tests" -DKELSRC_BUILD_TESTS=ON -DKELSRC_BUILD_IMPORTER=OFF
expect "kelSrc $tests" -DKELSRC_BUILD_TESTS=ON -DKELSRC_BUILD_PREPARE=OFF -DKELSRC_BUILD_IMPORTER=OFF
expect 'kelSrc kelsrc_prepare kelsrc_bench' -DKELSRC_BUILD_BENCH=ON -DKELSRC_BUILD_IMPORTER=OFF
expect 'kelSrc kelsrc_prepare kelsrc_importer kelsrc_convert kelsrc' -DKELSRC_VIEWER=AUTO
expect kelSrc -DKELSRC_BUNDLED_PLATFORM=OFF
expect kelSrc -DKELSRC_BUNDLED_PLATFORM=OFF -DKELSRC_BUILD_PREPARE=OFF -DKELSRC_BUILD_IMPORTER=OFF -DKELSRC_BUILD_CLI=OFF

refuse 'KELSRC_BUILD_TESTS=ON needs KELSRC_BUNDLED_PLATFORM=ON' -DKELSRC_BUNDLED_PLATFORM=OFF -DKELSRC_BUILD_TESTS=ON
refuse 'KELSRC_BUILD_BENCH=ON needs KELSRC_BUILD_PREPARE=ON' -DKELSRC_BUNDLED_PLATFORM=OFF -DKELSRC_BUILD_BENCH=ON
refuse 'KELSRC_BUILD_BENCH=ON needs KELSRC_BUILD_PREPARE=ON' -DKELSRC_BUILD_PREPARE=OFF -DKELSRC_BUILD_BENCH=ON
refuse 'KELSRC_VIEWER=ON needs KELSRC_BUILD_CLI=ON' -DKELSRC_BUILD_CLI=OFF -DKELSRC_VIEWER=ON
refuse 'KELSRC_FUZZ=ON needs KELSRC_BUNDLED_PLATFORM=ON' -DKELSRC_BUNDLED_PLATFORM=OFF -DKELSRC_FUZZ=ON
refuse 'KELSRC_FUZZ=ON brings its own sanitizers' -DKELSRC_FUZZ=ON -DKELSRC_SANITIZE=ON
if ! "$compiler" --version | grep -q clang; then
    refuse 'KELSRC_FUZZ=ON needs clang' -DKELSRC_FUZZ=ON
fi
exit "$status"
