#!/usr/bin/env bash
# no_build_paths.sh PREFIX SOURCE BUILD: no text file of the installed tree, and no library search path, names the
# folder that it was built in.
set -euo pipefail
prefix=$1 source=$2 build=$3
if grep -rIl -e "$source" -e "$build" "$prefix"; then
    echo "these installed files name the build's folders"
    exit 1
fi
while read -r file; do
    if readelf -d "$file" 2>/dev/null | grep -E 'R(UN)?PATH' | grep -F -e "$source" -e "$build"; then
        echo "$file searches its libraries in the build's folders"
        exit 1
    fi
done < <(find "$prefix" -type f)
