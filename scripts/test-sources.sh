#!/usr/bin/env bash
# Makes the archive of the sources, unpacks it, and builds it without a network.
#
#     scripts/test-sources.sh [BUILD] [TARGET]      BUILD: a configured folder (default: build/package)
#                                                   TARGET: what is built (default: all)
set -euo pipefail
project=$(realpath "$(dirname "${BASH_SOURCE[0]}")/..")
build=$(realpath "${1:-$project/build/package}")
target=${2:-all}
work=$build/sources-test

fail() { echo "test-sources: $*" >&2; exit 1; }

# run COMMAND...: tells what it printed only if it fails.
run() { "$@" >"$work/log" 2>&1 || { cat "$work/log" >&2; fail "failed: $*"; }; }

# What git would commit is what the archive holds.
compare_with_git() {
    git -C "$project" rev-parse --is-inside-work-tree >/dev/null 2>&1 || return 0
    run diff <(git -C "$project" ls-files --cached --others --exclude-standard | sort) \
        <(cd "$sources" && find . -type f -printf '%P\n' | sort)
}

rm -rf "$work"
mkdir -p "$work/unpacked"
run cpack --config "$build/CPackSourceConfig.cmake" -B "$work"
run tar -xf "$work"/veltrane_sceneutils-*.tar.xz -C "$work/unpacked"
sources=$(echo "$work"/unpacked/veltrane_sceneutils-*)
compare_with_git

# Where the system forbids a network of one's own, the build goes without that proof.
offline=()
if unshare --map-root-user --net true 2>/dev/null; then offline=(unshare --map-root-user --net); fi
run "${offline[@]}" cmake -S "$sources" -B "$work/build" -G Ninja \
    -DCMAKE_CXX_COMPILER_LAUNCHER="$(command -v ccache || true)"
run "${offline[@]}" cmake --build "$work/build" --parallel 2 --target "$target"
rm -rf "$work"
echo "test-sources: the sources of $project build"
