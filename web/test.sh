#!/usr/bin/env bash
# web/test.sh [WRITE_WEB_FIXTURES]
#
# Tests the packages in web/: compiles them (see web/build.sh), has the given program write the files to test on
# (default: build/release/bin/write_web_fixtures) and runs the tests, in Node and in Debian's Chromium.
set -euo pipefail
case "${1:-}" in
    -h | --help) sed -n '2,/^set/{/^set/d;s/^# \{0,1\}//;p;}' "${BASH_SOURCE[0]}"; exit 0 ;;
esac
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
fixtures=$(realpath -m -- "${1:-$root/build/release/bin/write_web_fixtures}")
cd "$root/web"
. ./common.sh

need_node
if [ ! -x "$fixtures" ]; then
    say "there is no program \"$fixtures\"; build it: cmake --build --preset release --target write_web_fixtures"
    exit 1
fi

./build.sh
export KELSRC_COMMAND=${fixtures%/*}/kelsrc
export KELSRC_WEB_FIXTURES=$root/build/web/fixtures
quietly "$fixtures" "$KELSRC_WEB_FIXTURES"
quietly npm run --silent check
[ -t 1 ] || export NO_COLOR=1
npm test --silent
