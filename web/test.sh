#!/usr/bin/env bash
# web/test.sh [WRITE_WEB_FIXTURES]
#
# Tests the packages in web/: installs what package-lock.json names when it has changed, compiles them, has the
# given program write the files to test on (default: build/release/bin/write_web_fixtures) and runs the tests, in
# Node and in Debian's Chromium.
set -euo pipefail
case "${1:-}" in
    -h | --help) sed -n '2,/^set/{/^set/d;s/^# \{0,1\}//;p;}' "${BASH_SOURCE[0]}"; exit 0 ;;
esac
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
fixtures=$(realpath -m -- "${1:-$root/build/release/bin/write_web_fixtures}")
cd "$root/web"

say() { printf 'web/test.sh: %s\n' "$*" >&2; }
# Shows what a command said only when it failed.
quietly() {
    local log status=0
    log=$(mktemp)
    "$@" >"$log" 2>&1 || status=$?
    if [ "$status" -ne 0 ]; then
        cat "$log" >&2
        say "failed: $*"
    fi
    rm -f "$log"
    return "$status"
}

for tool in node npm; do
    if ! command -v "$tool" >/dev/null; then
        say "$tool is missing; install Node.js 18.19 or later (Debian: apt-get install nodejs npm)"
        exit 1
    fi
done
if [ ! -x "$fixtures" ]; then
    say "there is no program \"$fixtures\"; build it: cmake --build --preset release --target write_web_fixtures"
    exit 1
fi

# npm ci removes and writes everything again, so it runs only when the lock has changed.
installed=node_modules/.kelsrc-lock
if ! cmp -s package-lock.json "$installed"; then
    say "installing the packages of package-lock.json"
    quietly npm ci --no-audit --no-fund --ignore-scripts
    cp package-lock.json "$installed"
fi
export KELSRC_WEB_FIXTURES=$root/build/web/fixtures
quietly "$fixtures" "$KELSRC_WEB_FIXTURES"
quietly npm run --silent build
[ -t 1 ] || export NO_COLOR=1
npm test --silent
