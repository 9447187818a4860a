#!/usr/bin/env bash
# header_list.sh PREFIX LIST [PART...]: the installed tree holds the headers of the list, all below one folder, and no
# others. A PART is the folder of a part that this build leaves out.
set -euo pipefail
prefix=$1 list=$2
shift 2
parts=$(printf '%s\n' "$@")
expected=$(grep -v '^#' "$list" | while read -r header; do
    for part in $parts; do
        if [[ $header == "$part"* ]]; then continue 2; fi
    done
    echo "kelsrc/$header"
done | LC_ALL=C sort)
installed=$(cd "$prefix/include" && find . ! -type d -printf '%P\n' | LC_ALL=C sort)
diff <(echo "$expected") <(echo "$installed") && exit 0
echo "< is in $(basename "$list") alone, > is installed alone"
exit 1
