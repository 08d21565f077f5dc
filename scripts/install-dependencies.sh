#!/usr/bin/env bash
# Installs the packages named in dependencies.txt that are not there yet, and with --tests those of
# test-dependencies.txt. Needs root or sudo only if some are missing.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"

lists=(dependencies.txt)
[ "${1:-}" = --tests ] && lists+=(test-dependencies.txt)
mapfile -t packages < <(grep -hv '^#' "${lists[@]}")

if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
    echo "install-dependencies: this is no Debian system. Install the packages in scripts/ (${lists[*]}), then build with cmake --preset release." >&2
    exit 1
fi

missing=()
for package in "${packages[@]}"; do
    status=$(dpkg-query --show --showformat='${Status}' "$package" 2>/dev/null || true)
    [ "$status" = "install ok installed" ] || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -eq 0 ]; then
    as_root=()
elif command -v sudo >/dev/null; then
    as_root=(sudo)
else
    echo "install-dependencies: these packages are missing, and installing them needs root or sudo: ${missing[*]}" >&2
    echo "install-dependencies: have them installed (apt-get install ${missing[*]}), then run this again." >&2
    exit 1
fi

echo "Installing: ${missing[*]}"
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
