#!/usr/bin/env bash
# Installs the packages of packages.txt that are missing. As root, or through sudo.
set -euo pipefail
cd "$(dirname "$0")"

missing=()
while read -r package; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
done < <(sed -e 's/#.*//' -e '/^[[:space:]]*$/d' packages.txt)

[ ${#missing[@]} -eq 0 ] && exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || {
        echo "These packages are missing and need root or sudo to be installed: ${missing[*]}" >&2
        exit 1
    }
    as_root=(sudo)
fi

echo "Installing ${missing[*]}"
"${as_root[@]}" apt-get update -q >/dev/null
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends "${missing[@]}" >/dev/null
