#!/usr/bin/env bash
# check-manual.sh TOOL FOLDER: there is a well-formed page for the tool and for each command, with all options that its
# --help lists, and none for commands that are not for people.
set -euo pipefail
tool=$1
pages=$2
failures=0

fail() {
    echo "$1" >&2
    failures=$((failures + 1))
}

mandoc -T lint -W warning "$pages"/*.1 || fail "mandoc finds errors"

mapfile -t commands < <("$tool" --help | awk '/^Subcommands:/ { listed = 1; next } /^$/ { listed = 0 } listed && /^  [a-z]/ { print $1 }')
[ ${#commands[@]} -gt 10 ] || fail "--help lists ${#commands[@]} commands only"
expected=$(printf 'sceneutils-%s.1\n' "${commands[@]}" | sort)
found=$(cd "$pages" && ls | grep -v '^sceneutils\.1$' | sort)
[ "$expected" = "$found" ] || fail "pages and commands differ: $(diff <(echo "$expected") <(echo "$found"))"

for command in "${commands[@]}"; do
    page=$(mandoc -T ascii "$pages/sceneutils-$command.1" | sed 's/.\x08//g')
    while read -r option; do
        grep -qE -- "^ +(-[a-z], )?$option( |\$)" <<<"$page" || fail "sceneutils-$command(1) does not tell of $option"
    done < <("$tool" "$command" --help | grep -o '^  [^ ]*--[a-z-]*' | grep -o -- '--[a-z-]*')
done
grep -q 'Default: 10000\.' "$pages/sceneutils-convert.1" || fail "the default of --max-range is missing"
exit $((failures > 0))
