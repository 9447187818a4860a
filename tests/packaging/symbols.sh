#!/usr/bin/env bash
# symbols.sh NM LIBRARY: every name that the library offers belongs to one of the project's namespaces, and there
# are some.
set -euo pipefail
nm=$1 library=$2
names=$("$nm" -D --defined-only "$library" | awk '{ print $NF }')
own='^_Z(N|NK|T[VTIS]N|T[hv][n0-9_]+NK?|GVN)(3kel|3src|5utils|7logging)'
if foreign=$(grep -vE "$own" <<<"$names"); then
    echo "$library offers names that are not its own:"
    c++filt <<<"$foreign"
    exit 1
fi
echo "$(wc -l <<<"$names") names"
