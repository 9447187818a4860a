# Sourced by the other scripts, from the project's root.

say() { printf '%s: %s\n' "${0##*/}" "$*" >&2; }

# Compilers at work at once: one per processor, but at least 1.5 GiB of memory for each, which an instrumented
# test needs at its peak.
build_jobs() {
    local processors memory
    processors=$(nproc)
    memory=$(awk '/^MemAvailable:/ { print int($2 / 1572864) }' /proc/meminfo 2>/dev/null || true)
    if [ "${memory:-$processors}" -lt "$processors" ]; then processors=$memory; fi
    if [ "$processors" -lt 1 ]; then processors=1; fi
    echo "$processors"
}

# ccache keeps its store in the user's cache folder. Where there is none that can be written, the clone's own
# will do.
if [ -z "${CCACHE_DIR:-}" ] && ! mkdir -p "${XDG_CACHE_HOME:-${HOME:-/nonexistent}/.cache}/ccache" 2>/dev/null; then
    export CCACHE_DIR="$PWD/.cache/ccache"
fi

# What two build folders compile alike is compiled once: paths below this one count from the build folder.
export CCACHE_BASEDIR="${CCACHE_BASEDIR:-$PWD}"
