#!/usr/bin/env bash
# check-pictures.sh TOOL SCENES PROJECT: scripts/make-pictures.sh makes exactly the pictures that lie in docs/pictures.
set -euo pipefail
tool=$1
scenes=$2
project=$3

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
"$project/scripts/make-pictures.sh" "$tool" "$folder" "$scenes" >"$folder.log" 2>&1 || { cat "$folder.log" >&2; rm "$folder.log"; exit 1; }
rm "$folder.log"
diff <(cd "$project/docs/pictures" && ls) <(cd "$folder" && ls) || { echo "docs/pictures (<) and what is made (>) differ" >&2; exit 1; }
