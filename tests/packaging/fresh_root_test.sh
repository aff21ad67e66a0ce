#!/usr/bin/env bash
# usage: fresh_root_test.sh <cpack> <build folder>
# Makes the Debian packages and a fresh system, and has judge_fresh_root.sh install, boot and judge them there. The system
# itself is kept in the build folder. Ends with 77 where this machine cannot make or boot one.
set -euo pipefail
cpack="$1"
build="$2"
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"

cannot() {
    echo "a fresh system cannot be booted here: $*" >&2
    exit 77
}

# own_cgroups: the folders of this process in the hierarchies that systemd keeps its services in.
own_cgroups() {
    local id controllers path base=/sys/fs/cgroup
    [ ! -d /sys/fs/cgroup/unified ] || base=/sys/fs/cgroup/unified
    while IFS=: read -r id controllers path; do
        case "$controllers" in
            "") echo "$base$path" ;;
            name=systemd) echo "/sys/fs/cgroup/systemd$path" ;;
        esac
    done </proc/self/cgroup
}

[ "$(id -u)" -eq 0 ] || cannot "that takes root"
command -v systemd-nspawn >/dev/null || cannot "systemd-nspawn is missing"
unshare --mount --pid --fork true || cannot "namespaces of its own are not allowed"
scratch="$(mktemp -d)"
mapfile -t cgroups < <(own_cgroups)
clean_up() {
    for cgroup in "${cgroups[@]}"; do
        [ -d "$cgroup/fresh-$$" ] || continue
        echo $$ >"$cgroup/cgroup.procs" || true
        find "$cgroup/fresh-$$" -depth -type d -exec rmdir {} + || true
    done
    rm -rf --one-file-system "$scratch"
}
trap clean_up EXIT

"$cpack" --config "$build/CPackConfig.cmake" -G DEB -B "$scratch/made" >"$scratch/cpack.log" 2>&1 ||
    { cat "$scratch/cpack.log" >&2; exit 1; }
# What our own packages do not bring along themselves.
needs="$(dpkg-deb -f "$scratch"/made/ovrtspd_*.deb Depends |
    sed -E 's/ *\([^)]*\)//g; s/(^|, *)libovmediacontrol[0-9]+//g; s/^, *//; s/, */,/g')"
base="$build/fresh-root/$(sha256sum <<<"$needs" | cut -c 1-12)"
"$here/make_root.sh" "$base" "$needs"
for cgroup in "${cgroups[@]}"; do
    mkdir "$cgroup/fresh-$$" && echo $$ >"$cgroup/fresh-$$/cgroup.procs" || cannot "control groups are not allowed"
done
# Mounts and processes end with the namespaces that they are made in.
unshare --mount --pid --fork --kill-child --mount-proc "$here/judge_fresh_root.sh" "$scratch" "$base"
