#!/usr/bin/env bash
# web/bench.sh [--rounds N] [--paced-rounds N] [--scenes abc] [--markdown FILE] [--plot FILE] [--look FOLDER]
#
# Measures in Chromium how the loader brings the scenes of bench/ to the screen, beside three.js' GLTFLoader on the same
# geometry. Builds what is needed. Prints tables; with --markdown it also puts them between the lines "browser: begin"
# and "browser: end" of that file, with --plot it draws them. --look keeps a picture and a CPU profile of every load.
# Takes about 3 minutes per round. For the document:
#
#     web/bench.sh --markdown docs/performance.md --plot docs/pictures/browser.svg
set -euo pipefail
case "${1:-}" in
    -h | --help) sed -n '2,/^set/{/^set/d;s/^# \{0,1\}//;p;}' "${BASH_SOURCE[0]}"; exit 0 ;;
esac
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# Files are named from where the caller stands.
arguments=()
while [ $# -gt 0 ]; do
    case "$1" in
        --markdown | --plot | --look)
            [ $# -ge 2 ] || { echo "web/bench.sh: $1 takes a path" >&2; exit 2; }
            arguments+=("$1" "$(realpath -m -- "$2")")
            shift 2
            ;;
        *) arguments+=("$1"); shift ;;
    esac
done

cd "$root"
cmake --preset release --log-level=WARNING >&2
cmake --build --preset release --target kelsrc_scenes >&2
build/release/bin/kelsrc_scenes build/web/bench/scenes
cd web
if [ ! -d node_modules ]; then npm ci --no-audit --no-fund --ignore-scripts >&2; fi
npm run --silent build -w kelsrc-loader >&2
exec node_modules/.bin/vite-node bench/run.ts -- ${arguments[@]+"${arguments[@]}"}
