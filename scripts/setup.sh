#!/usr/bin/env bash
# scripts/setup.sh [build|demo|test]
#
# Installs what kelSrc needs on Debian 12 and nothing else: the packages in scripts/packages.txt that are not
# there yet. "build" is enough to build library and command, "demo" adds the models of the demonstration,
# "test" (the default) everything. Needs root or sudo only when something is missing.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

say() { printf 'setup: %s\n' "$*" >&2; }

case "${1:-test}" in
    build) roles='build' ;;
    demo) roles='build|demo' ;;
    test) roles='build|demo|test' ;;
    -h | --help) sed -n '2,/^set/{/^set/d;s/^# \{0,1\}//;p;}' "${BASH_SOURCE[0]}"; exit 0 ;;
    *) say "unknown argument \"$1\"; use build, demo or test"; exit 2 ;;
esac

packages() { sed -E -n "s/^([^# ]+) +(${roles}) +.*/\1/p" scripts/packages.txt; }

# Whether a command is there that is not older than a version, as "node>=18.19" or "npm".
has_command() {
    local name=${1%%>=*} oldest=${1#*>=} version
    command -v "$name" >/dev/null || return 1
    if [ "$name" = "$1" ]; then return 0; fi
    version=$("$name" --version 2>/dev/null | sed -E -n '1s/^[^0-9]*([0-9][0-9.]*).*/\1/p')
    printf '%s\n%s\n' "$oldest" "${version:-0}" | sort -V -C
}

if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
    say "this is no Debian system. Install these by hand, then build with cmake (see README.md):"
    packages | sed 's/^/  /; s/=.*//' >&2
    exit 1
fi

wanted=()
while IFS= read -r entry; do
    package=${entry%%=*}
    if [ "$package" != "$entry" ] && has_command "${entry#*=}"; then continue; fi
    wanted+=("$package")
done < <(packages)
mapfile -t missing < <(
    # dpkg-query fails for a package that it has never heard of; those stay in the list of missing ones.
    { dpkg-query -W -f '${Package} ${db:Status-Status}\n' "${wanted[@]}" 2>/dev/null || true; } |
        awk -v wanted="${wanted[*]}" '
            $2 == "installed" { have[$1] = 1 }
            END { n = split(wanted, w, " "); for (i = 1; i <= n; ++i) if (!(w[i] in have)) print w[i] }'
)

if [ "${#missing[@]}" -eq 0 ]; then
    say "all ${#wanted[@]} packages are there"
    exit 0
fi

install=(apt-get install -y --no-install-recommends "${missing[@]}")
as_root=()
if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null; then
        say "these packages are missing, and there is neither root nor sudo to install them. As root, run:"
        say "  apt-get update && ${install[*]}"
        exit 1
    fi
    as_root=(sudo)
fi

say "installing ${#missing[@]} missing Debian packages${as_root[0]:+ with sudo}: ${missing[*]}"
# Without questions and, where the system has no message catalogue yet, in plain English.
quietly=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8)
"${quietly[@]}" apt-get -q -o Acquire::Retries=3 update >&2
"${quietly[@]}" "${install[0]}" -q -o Acquire::Retries=3 -o Dpkg::Use-Pty=0 "${install[@]:1}" >&2
say "done"
