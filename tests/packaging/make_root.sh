#!/usr/bin/env bash
# usage: make_root.sh <folder> <packages, separated by commas>
# Makes a minimal system of this machine's own release in <folder>: what is essential, apt, and the packages with what
# they need. A folder that has once been made is left as it is. Ends with 77 where this machine cannot make one.
set -euo pipefail
folder="$1"
packages="$2"

cannot() {
    echo "a fresh system cannot be made here: $*" >&2
    exit 77
}

[ "$(id -u)" -eq 0 ] || cannot "that takes root"
command -v mmdebstrap >/dev/null || cannot "mmdebstrap is missing"
mkdir -p "$(dirname "$folder")"
exec 9>"$folder.lock"
flock 9
[ ! -d "$folder" ] || exit 0
trap 'rm -rf --one-file-system "$folder.part"' EXIT
rm -rf --one-file-system "$folder.part"

# From where this machine has its own packages; without an answer mmdebstrap asks Debian's servers.
# shellcheck source=/dev/null
release="$(. /etc/os-release && echo "$VERSION_CODENAME")"
# shellcheck disable=SC2016
mapfile -t sources < <(apt-get indextargets --format 'deb $(REPO_URI) $(RELEASE) $(COMPONENT)' \
    "Created-By: Packages" "Origin: Debian" | sort -u)

# Packages that this machine has loaded for itself are not loaded again. Nobody reads manuals there, and the system need
# not outlive a power failure. For what is essential mmdebstrap would leave files out by a slow filter of its own.
# Whatever it mounts there is gone when it ends, however that happens: somebody may delete the build folder.
# shellcheck disable=SC2016
if ! unshare --mount --pid --fork --kill-child --mount-proc mmdebstrap --mode=root --variant=apt --include="$packages" \
    --aptopt='Acquire::Languages "none"' --dpkgopt=force-unsafe-io \
    --setup-hook='mkdir -p "$1/var/cache/apt/archives"
        cp -l /var/cache/apt/archives/*.deb "$1/var/cache/apt/archives/" 2>/dev/null || true' \
    --essential-hook='printf "path-exclude=/usr/share/%s/*\n" doc locale man >"$1/etc/dpkg/dpkg.cfg.d/no-manuals"' \
    --customize-hook='rm "$1/etc/dpkg/dpkg.cfg.d/no-manuals"' \
    --format=directory --verbose "$release" "$folder.part" "${sources[@]}" >"$folder.log" 2>&1; then
    unreached='Temporary failure resolving|Could not resolve|Could not connect|Unable to connect|Failed to fetch'
    ! grep -qE "$unreached" "$folder.log" || cannot "$(grep -E "$unreached" "$folder.log" | head -n 1)"
    tail -n 30 "$folder.log" >&2
    exit 1
fi
rm -f "$folder.part"/var/cache/apt/archives/*.deb
mv "$folder.part" "$folder"
