#!/usr/bin/env bash
# links.sh SOURCE: every relative link of the project's Markdown pages leads to a file.
set -euo pipefail
source=$1
. "$(dirname "${BASH_SOURCE[0]}")/sources.sh"
cd "$source"
status=0
while read -r page; do
    while read -r target; do
        if [ ! -e "$(dirname "$page")/$target" ]; then
            echo "$page links to $target, which is not there"
            status=1
        fi
    done < <(grep -oE '\]\([^)#: ]+[)#]' "$page" | sed 's,^..,,;s,.$,,')
done < <(project_files . | grep '\.md$')
exit "$status"
