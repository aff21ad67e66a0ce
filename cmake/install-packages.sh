#!/usr/bin/env bash
# Installs the Debian packages of debian-packages.txt that this machine lacks. Says and does nothing when none
# is missing.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"

list=debian-packages.txt
if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
    echo "This machine has no Debian package tools; install by hand what the packages in cmake/$list hold." >&2
    exit 0
fi

# A package is there when it is "installed" itself or provided under that name; "config-files" is a removed one.
mapfile -t listed < <(sed -e 's/#.*//' -e 's/[[:space:]]*$//' -e '/^$/d' "$list")
mapfile -t present < <(dpkg-query -W -f='${db:Status-Status} ${Package}\n' "${listed[@]}" 2>/dev/null |
    sed -n 's/^installed //p')
missing=()
for package in "${listed[@]}"; do
    case " ${present[*]:-} " in
        *" $package "*) ;;
        *) missing+=("$package") ;;
    esac
done
if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

as_root=()
if [ "$(id -u)" -ne 0 ]; then
    # With a terminal sudo may ask for its password; without one it must not wait for an answer.
    if ! command -v sudo >/dev/null || { [ ! -t 0 ] && ! sudo -n true 2>/dev/null; }; then
        echo "These Debian packages are missing, and installing them needs root. Run as root:" >&2
        echo "    apt-get update && apt-get install -y --no-install-recommends ${missing[*]}" >&2
        exit 1
    fi
    as_root=(sudo)
fi

echo "Installing Debian packages: ${missing[*]}" >&2
# tshark's package asks whether everybody may capture; the default is no.
settings=(DEBIAN_FRONTEND=noninteractive DEBCONF_NONINTERACTIVE_SEEN=true)
"${as_root[@]}" env "${settings[@]}" apt-get -q update </dev/null >&2
"${as_root[@]}" env "${settings[@]}" apt-get -q install -y --no-install-recommends "${missing[@]}" </dev/null >&2
