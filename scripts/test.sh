#!/usr/bin/env bash
# scripts/test.sh [CTEST ARGUMENT...]
#
# Builds kelSrc twice, optimised and with AddressSanitizer and UndefinedBehaviorSanitizer, and runs the tests
# of both; builds the fuzz targets with clang and lets each run for 20 seconds. Installs what is missing first.
# Arguments go to ctest, for example: -R container
set -euo pipefail
case "${1:-}" in
    -h | --help) sed -n '2,/^set/{/^set/d;s/^# \{0,1\}//;p;}' "${BASH_SOURCE[0]}"; exit 0 ;;
esac
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/common.sh

scripts/setup.sh test
jobs=$(build_jobs)
presets=(release sanitize fuzz)
for preset in "${presets[@]}"; do
    say "building preset $preset with $jobs jobs"
    cmake --preset "$preset" --log-level=WARNING
    cmake --build --preset "$preset" --parallel "$jobs"
done

# One run over all builds, so that ctest's last lines count every test and its exit status is the answer.
mkdir -p build/all
for preset in "${presets[@]}"; do
    printf 'subdirs("%s")\n' "$PWD/build/$preset"
done >build/all/CTestTestfile.cmake
say "running the tests of all builds"
exec ctest --test-dir build/all --parallel "$jobs" --output-on-failure --no-tests=error "$@"
