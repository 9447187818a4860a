#!/usr/bin/env bash
# web/build.sh [FOLDER]
#
# Compiles the packages in web/: installs what package-lock.json names when it has changed, and builds the loader and
# the viewer when their sources have. FOLDER gets the viewer in one file, viewer.html, and the same as viewer.html.gz.
set -euo pipefail
case "${1:-}" in
    -h | --help) sed -n '2,/^set/{/^set/d;s/^# \{0,1\}//;p;}' "${BASH_SOURCE[0]}"; exit 0 ;;
esac
target=${1:+$(realpath -m -- "$1")}
cd "$(dirname "${BASH_SOURCE[0]}")"
. ./common.sh

need_node
# Several build folders share this one; they take turns. The lock is on the folder itself, so no file is left.
exec 9<.
flock 9

# npm ci removes and writes everything again, so it runs only when the lock has changed.
installed=node_modules/.kelsrc-lock
if ! cmp -s package-lock.json "$installed"; then
    say "installing the packages of package-lock.json"
    if ! quietly npm ci --no-audit --no-fund --ignore-scripts; then
        say "without a network, build the command without the viewer: cmake -DKELSRC_VIEWER=OFF"
        exit 1
    fi
    cp package-lock.json "$installed"
fi

# What was built from the same sources need not be built again.
sources=$(
    node --version
    find package-lock.json build.sh loader viewer -type f ! -path '*/dist/*' ! -path '*/node_modules/*' ! -path '*/test/*' -print0 |
        sort -z | xargs -0 sha256sum
)
page=viewer/dist/viewer.html
built=viewer/dist/.built-from
if [ ! -f "$page" ] || [ ! -f loader/dist/index.js ] || [ "$sources" != "$(cat "$built" 2>/dev/null)" ]; then
    rm -f "$built"
    quietly npm run --silent build
    printf '%s\n' "$sources" >"$built"
fi
if [ -n "$target" ]; then
    mkdir -p "$target"
    cp "$page" "$target/viewer.html"
    # Without name and time, so that the same page gives the same bytes.
    gzip -9 -n -c "$page" >"$target/viewer.html.gz"
fi
