# Sourced by the scripts beside it.

say() { printf 'web/%s: %s\n' "$(basename "$0")" "$*" >&2; }

# Shows what a command said only when it failed.
quietly() {
    local log status=0
    log=$(mktemp)
    "$@" >"$log" 2>&1 || status=$?
    if [ "$status" -ne 0 ]; then
        cat "$log" >&2
        say "failed: $*"
    fi
    rm -f "$log"
    return "$status"
}

need_node() {
    local tool
    for tool in node npm; do
        if ! command -v "$tool" >/dev/null; then
            say "$tool is missing; install Node.js 18.19 or later (Debian: apt-get install nodejs npm)"
            exit 1
        fi
    done
}
