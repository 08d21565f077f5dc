#!/usr/bin/env bash
# Fails if a link or a picture of a page leads nowhere: to a file that is not there, or to a heading that the page does
# not have. Links to other sites are not followed.
#
#     scripts/check-links.sh [PAGE.md...]      without names: all pages
set -euo pipefail
[ $# -gt 0 ] || cd "$(dirname "${BASH_SOURCE[0]}")/.."

if [ $# -gt 0 ]; then pages=("$@"); else mapfile -t pages < <(find . -name '*.md' -not -path './build/*' -not -path './.git/*' | sort); fi

# The page without code, which is no text.
text() {
    awk '/^ *```/ { code = !code; next } code || /^    / { next } { gsub(/`[^`]*`/, "x"); print }' "$1"
}

# The names of a page's headings, as web views of a repository make them.
anchors() {
    awk '/^ *```/ { code = !code; next } !code && /^#+ / { sub(/^#+ /, ""); print }' "$1" |
        tr '[:upper:]' '[:lower:]' | sed -e 's/[^a-z0-9 _-]//g' -e 's/ /-/g'
}

broken=0
count=0
for page in "${pages[@]}"; do
    while read -r link; do
        count=$((count + 1))
        case $link in http://* | https://* | mailto:*) continue ;; esac
        file=${link%%#*}
        target=$page
        [ -z "$file" ] || target=$(dirname "$page")/$file
        if [ ! -e "$target" ]; then
            echo "$page: there is no $file" >&2
            broken=1
        elif [[ $link == *'#'* ]] && ! anchors "$target" | grep -qxF "${link#*#}"; then
            echo "$page: $target has no heading #${link#*#}" >&2
            broken=1
        fi
    done < <(text "$page" | { grep -o '\]([^)]*)' || true; } | sed -e 's/^](//' -e 's/)$//')
done
# A page of a tool or command that the map of all pages leaves out is never found.
if [ $# -eq 0 ]; then
    for page in docs/*.md docs/guides/*.md; do
        name=${page#docs/}
        [ "$name" = README.md ] || grep -qF "($name" docs/README.md || { echo "docs/README.md does not name $name" >&2; broken=1; }
    done
fi
echo "$count links of ${#pages[@]} pages"
exit $broken
