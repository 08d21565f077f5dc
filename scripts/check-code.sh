#!/usr/bin/env bash
# Fails if clang-tidy (.clang-tidy) or cppcheck (scripts/cppcheck-suppressions.txt) finds a mistake in a source. What was
# clean is looked at again when it, a header that it includes, its compiler's options or the configuration has changed.
#
#     scripts/check-code.sh [FOLDER|FILE...]      what clang-tidy looks at (default: all but the tests, as far as build/release
#                                                 compiles it); cppcheck takes seconds for everything but the tests,
#                                                 whose macros it does not know
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

jobs=2
folders=(apps benchmarks fuzz logging offscreen src)
export work=build/check
export database=$work/compile_commands.json

# Each of the project's sources that the build compiles once, though it may be part of several programs.
select_sources() {
    git ls-files --cached --others --exclude-standard -- "$@" | grep '\.cpp$' |
        awk -v root="$PWD/" -v commands="$work/commands/" '
            FNR == NR { wanted["  \"file\": \"" root $0 "\","] = $0; next }
            /^{/ { entry = "" }
            { entry = entry $0 "\n" }
            /^  "command": / { command = $0 }
            /^  "file": / { sub(/,?$/, ","); source = wanted[$0] }
            /^}/ && source != "" && !(source in seen) {
                seen[source]
                sub(/},?\n$/, "}", entry)
                all = all (all == "" ? "" : ",\n") entry
                print source
                print version "\n" command > (commands source)
                close(commands source)
            }
            END { print "[\n" all "\n]" > database }
        ' version="$(clang-tidy --version | tr '\n' ' ')" database="$database" - build/release/compile_commands.json
}

# depends_on SOURCE: what is read to compile it, as the compiler tells.
depends_on() {
    local command
    command=$(sed -n -e 's/^  "command": "\(.*\)",*$/\1/p' "$work/commands/$1" | sed -e 's/\\\(.\)/\1/g' -e 's/ -o [^ ]*//')
    eval "${command/ -c / -M }" | sed -e 's/\\$//' -e 's/^[^ ]*: *//' | tr -s ' ' '\n' | grep .
}

# tidy SOURCE: looks at it, unless it was clean and is the same.
tidy() {
    local known=$work/clean/$1 findings
    sha256sum --check --status "$known" 2>/dev/null && return 0
    rm -f "$known"
    { printf '%s\n' .clang-tidy "$work/commands/$1"; depends_on "$1"; } |
        xargs -d '\n' sha256sum >"$known.new"
    if findings=$(clang-tidy -p "$work" --quiet "$1" 2>"$known.errors"); then
        mv "$known.new" "$known"
        return 0
    fi
    [ -n "$findings" ] || findings=$(cat "$known.errors")
    printf '%s\n' "$findings"
    return 1
}
export -f tidy depends_on

scripts/install-dependencies.sh --tests
[ $# -gt 0 ] || set -- "${folders[@]}"
[ -e build/release/compile_commands.json ] || cmake --preset release
rm -rf "$work/commands"
mapfile -t sources < <(git ls-files --cached --others --exclude-standard '*.cpp' | xargs -n1 dirname | sort -u)
mkdir -p "${sources[@]/#/$work/commands/}" "${sources[@]/#/$work/clean/}"
mapfile -t sources < <(select_sources "$@")
[ ${#sources[@]} -gt 0 ] || { echo "check-code: the build knows no such source: $*" >&2; exit 1; }

# What cppcheck keeps does not tell which findings were suppressed.
sha256sum --check --status "$work/cppcheck/known" 2>/dev/null || rm -rf "$work/cppcheck"
mkdir -p "$work/cppcheck"
sha256sum scripts/check-code.sh scripts/cppcheck-suppressions.txt >"$work/cppcheck/known"

failed=0
cppcheck -Iinclude -Isrc -Ilogging/include -I. -Iapps/sceneutils -Itests \
    '-DNLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(...)=' --cppcheck-build-dir=$work/cppcheck -j $jobs --quiet --error-exitcode=1 \
    --template=gcc --std=c++17 --library=googletest --enable=warning,style,performance,portability --inline-suppr \
    --suppressions-list=scripts/cppcheck-suppressions.txt examples "${folders[@]}" || failed=1
printf '%s\0' "${sources[@]}" | xargs -0 -n 1 -P $jobs bash -euo pipefail -c 'tidy "$1"' tidy || failed=1
echo "check-code: ${#sources[@]} sources, $([ $failed -eq 0 ] && echo clean || echo findings)"
exit $failed
