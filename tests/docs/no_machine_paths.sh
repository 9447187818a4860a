#!/usr/bin/env bash
# no_machine_paths.sh SOURCE: no file of the project names a folder of somebody's machine or a host that packages are
# downloaded from. Such a line works on one machine, or until that host is gone.
set -euo pipefail
source=$1
. "$(dirname "${BASH_SOURCE[0]}")/sources.sh"
cd "$source"
folders='(^|[^A-Za-z0-9_.$}/-])/(home|root|work|mnt|Users|workspace)/'
hosts='registry\.npmjs|deb\.debian\.org|snapshot\.debian|pypi\.org|pythonhosted|unpkg\.com|jsdelivr|cdnjs|esm\.sh'
hosts+='|githubusercontent|/releases/download/|"resolved": *"http'
if project_files . | grep -vx 'tests/docs/no_machine_paths.sh' |
    xargs -d '\n' grep -nIE -e "$folders" -e "$hosts" --; then
    echo "these lines name a machine's folder or a download host"
    exit 1
fi
