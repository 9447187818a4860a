#!/usr/bin/env bash
# helper.sh PREFIX FOLDER: the installed library finds the program that reads models for it from where both lie, and
# says so when it does not.
set -euo pipefail
prefix=$1 folder=$2
rm -rf "$folder"
mkdir -p "$folder"
cp -r "$prefix" "$folder/moved"
printf 'OFF\n3 1 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n' >"$folder/model.off"
convert() {
    env -u KELSRC_IMPORT_HELPER "$folder/moved/bin/kelsrc" convert "$folder/model.off" -o "$folder/model.src" 2>&1
}
note="without limits on time and memory"
if convert | grep -F "$note"; then
    echo "the helper was not found"
    exit 1
fi
rm "$folder/moved/libexec/kelsrc/kelsrc-import"
convert | grep -F "$note"
