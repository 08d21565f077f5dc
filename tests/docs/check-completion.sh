#!/usr/bin/env bash
# check-completion.sh FOLDER: what bash offers when words have been begun; that zsh can read its script.
set -euo pipefail
files=$(realpath "$1")
failures=0

source "$files/sceneutils.bash"
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
touch master.flt "with blank.flt" other.txt

# expect WORDS... -- OFFERED...: the last word is the one that has been begun.
expect() {
    COMP_WORDS=()
    while [ "$1" != -- ]; do COMP_WORDS+=("$1"); shift; done
    shift
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    _sceneutils
    local offered expected
    offered=$(printf '%s\n' "${COMPREPLY[@]}" | sort)
    expected=$(printf '%s\n' "$@" | sort)
    [ "$offered" = "$expected" ] && return
    echo "after '${COMP_WORDS[*]}' bash offers '$offered', not '$expected'" >&2
    failures=$((failures + 1))
}

expect sceneutils ax -- axes
expect sceneutils --v -- --version
expect sceneutils convert-j --
expect sceneutils convert --over -- --overwrite
expect sceneutils convert --max-range '' --
expect sceneutils plan --root m -- master.flt
expect sceneutils info -- info
expect sceneutils info w -- 'with blank.flt'
expect sceneutils info '' -- master.flt other.txt 'with blank.flt'
expect sceneutils axes --size 2 m --  master.flt

grep -q convert-job "$files/sceneutils.bash" "$files/_sceneutils" && { echo "convert-job is not for people" >&2; exit 1; }
zsh -n "$files/_sceneutils"
exit $((failures > 0))
