#!/usr/bin/env bash
# run-guide.sh TOOL GUIDE.md: runs the command lines of a guide, those that begin with "    $ ", one after the other in
# an empty folder, with the tool as `sceneutils`. Fails at the first one whose exit status is not 0.
set -euo pipefail
tool=$(realpath "$1")
guide=$(realpath "$2")

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
mkdir "$folder/bin" "$folder/work"
ln -s "$tool" "$folder/bin/sceneutils"
export PATH=$folder/bin:$PATH
cd "$folder/work"

count=0
while IFS= read -r line; do
    echo "\$ $line"
    bash -c "$line" </dev/null || { echo "$guide: exit status $? from: $line" >&2; exit 1; }
    count=$((count + 1))
done < <(sed -n 's/^    \$ //p' "$guide")
[ "$count" -gt 0 ] || { echo "$guide has no command lines" >&2; exit 1; }
