#!/usr/bin/env bash
# format_check.sh CLANG_FORMAT SOURCE: every C++ file is formatted by the project's .clang-format.
set -euo pipefail
clang_format=$1 source=$2
. "$(dirname "${BASH_SOURCE[0]}")/sources.sh"
cd "$source"
project_files . | grep -E '\.(h|cpp)$' | xargs -d '\n' "$clang_format" --dry-run -Werror
