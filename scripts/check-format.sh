#!/usr/bin/env bash
# Fails if a source file is not formatted as .clang-format says. Reformat with: scripts/check-format.sh --fix
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

mapfile -t sources < <(git ls-files '*.h' '*.cpp')
if [ "${1:-}" = --fix ]; then
    exec clang-format -i "${sources[@]}"
fi
clang-format --dry-run --Werror "${sources[@]}"
