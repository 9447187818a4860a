# Sourced by the checks: prints the project's files, relative to its root, one a line. In a tree without git (an
# unpacked archive) that is everything but what builds leave behind.
project_files() {
    git -c safe.directory='*' -C "$1" ls-files 2>/dev/null ||
        (cd "$1" && find . -type f ! -path './build*' ! -path './.cache/*' ! -path '*/node_modules/*' -printf '%P\n')
}
