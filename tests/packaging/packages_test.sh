#!/usr/bin/env bash
# usage: packages_test.sh <cpack> <build folder> <root of the sources> <architecture> [<sysroot>]
# Makes the Debian packages of what is built and judges them as they are: names, needs, contents, maintainer scripts;
# then unpacks them and runs the server there, on the unpacked library and by the unpacked configuration. With a sysroot
# they are packages for 32-bit ARM: their server runs under an emulator on the sysroot's libraries, and plays.
set -euo pipefail
cpack="$1"
build="$2"
root="$3"
architecture="$4"
sysroot="${5:-}"
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT
# shellcheck source=faults.sh
. "$(dirname "${BASH_SOURCE[0]}")/faults.sh"

# They must not depend on the builder's umask.
(umask 077 && "$cpack" --config "$build/CPackConfig.cmake" -G DEB -B "$scratch/made") >"$scratch/cpack.log" 2>&1 ||
    { cat "$scratch/cpack.log" >&2; exit 1; }
version="$(sed -n 's/^project(OVMediaControl VERSION \([0-9.]*\).*/\1/p' "$root/CMakeLists.txt")"
soname="libovmediacontrol${version%%.*}"
for name in "$soname" libovmediacontrol-dev ovrtspd; do
    deb="$scratch/made/${name}_${version}_$architecture.deb"
    [ -f "$deb" ] || { ls "$scratch/made" >&2; fault "no ${deb##*/} was made"; exit 1; }
    dpkg-deb -x "$deb" "$scratch/root"
    dpkg-deb -x "$deb" "$scratch/$name"
    dpkg-deb -e "$deb" "$scratch/$name.control"
    dpkg-deb -c "$deb" | awk '$2 != "root/root"' | grep . >&2 && fault "$name: not everything is root's"
    dpkg-deb -c "$deb" | grep -vE '^(-rw-r--r--|(-|d)rwxr-xr-x|lrwxrwxrwx) ' >&2 && fault "$name: modes are not as all need them"
    same "the architecture of $name" "$architecture" "$(dpkg-deb -f "$deb" Architecture)"
done

# Beside what every package holds: its licence and its changes.
contents() {
    (cd "$scratch/$1" && find . ! -type d ! -name '*.h' ! -path "./usr/share/doc/$1/copyright" \
        ! -path "./usr/share/doc/$1/changelog.gz" | sort)
}
libdir="$(cd "$scratch/root" && dirname "$(find . -name "libovmediacontrol.so.$version")")"
same "what is in $soname" "$libdir/libovmediacontrol.so.${version%%.*}
$libdir/libovmediacontrol.so.$version" "$(contents "$soname")"
same "what is in libovmediacontrol-dev" "$(printf '%s\n' "$libdir/cmake/OVMediaControl/"OVMediaControl{Config,ConfigVersion,Targets}.cmake \
    "$libdir/libovmediacontrol.so" "$libdir/pkgconfig/ovmediacontrol.pc")" \
    "$(contents libovmediacontrol-dev | grep -v 'OVMediaControlTargets-[a-z]*\.cmake')"
same "what is in ovrtspd" "./etc/ovrtspd/ovrtspd.toml
./usr/bin/ovrtspd
./usr/lib/systemd/system/ovrtspd-tls.socket
./usr/lib/systemd/system/ovrtspd.service
./usr/lib/systemd/system/ovrtspd.socket
./usr/share/doc/ovrtspd/fail2ban/jail.conf
./usr/share/doc/ovrtspd/fail2ban/ovrtspd.conf
./usr/share/doc/ovrtspd/monitoring/ovrtspd-alerts.yml
./usr/share/doc/ovrtspd/monitoring/ovrtspd-dashboard.json
./usr/share/man/man1/ovrtspd.1.gz" "$(contents ovrtspd)"

for name in "$soname" libovmediacontrol-dev ovrtspd; do
    docs="$scratch/$name/usr/share/doc/$name"
    grep -qFf <(sed -n 's/^Copyright (c) //p' "$root/LICENSE") "$docs/copyright" || fault "$name does not say whose it is"
    same "the version of the changes in $name" "$version" "$(zcat "$docs/changelog.gz" | sed -n '1s/.*(\(.*\)).*/\1/p')"
done

for binary in "$libdir/libovmediacontrol.so.$version" usr/bin/ovrtspd; do
    readelf -SW "$scratch/root/$binary" | grep ' \.symtab ' >&2 && fault "$binary still has its symbols"
done

if grep -q '^OV_HARDEN:BOOL=ON$' "$build/CMakeCache.txt"; then
    "$(dirname "${BASH_SOURCE[0]}")/check_hardening.py" "$scratch/root/$libdir/libovmediacontrol.so.$version" \
        "$scratch/root/usr/bin/ovrtspd" || fault "the packages are not hardened"
fi

field() {
    sed -n "s/^$2: //p" "$scratch/$1.control/control"
}
for name in libovmediacontrol-dev ovrtspd; do
    [[ "$(field "$name" Depends)" == *"$soname (= $version)"* ]] || fault "$name does not need $soname of its own version"
done
for needed in libc6 libstdc++6; do
    [[ "$(field "$soname" Depends)" == *"$needed ("* ]] || fault "$soname does not need $needed"
done
for needed in libc6 libstdc++6 libgstreamer1.0-0 libavformat59 libsqlite3-0; do
    [[ "$(field ovrtspd Depends)" == *", $needed (>= "* ]] || fault "ovrtspd does not need $needed"
done
if [ -n "$sysroot" ]; then
    for needed in $(field ovrtspd Depends | sed 's/ *([^)]*)//g; s/,//g'); do
        [ "$needed" = "$soname" ] || [ "$needed" = adduser ] ||
            dpkg-query --admindir="$sysroot/var/lib/dpkg" -W "$needed" >/dev/null || fault "ovrtspd needs $needed, which is not there"
    done
fi
grep -q '^activate-noawait ldconfig$' "$scratch/$soname.control/triggers" || fault "$soname does not have ldconfig run"

# Whatever lies in /etc is the administrator's.
same "the list of configuration files" "$(cd "$scratch/ovrtspd" && find etc -type f | sed 's,^,/,')" \
    "$(cat "$scratch/ovrtspd.control/conffiles")"
for script in postinst prerm postrm; do
    [ -x "$scratch/ovrtspd.control/$script" ] || fault "ovrtspd: $script cannot be run"
    sh -n "$scratch/ovrtspd.control/$script" || fault "ovrtspd: $script is no shell script"
done

page="$(zcat "$scratch/root/usr/share/man/man1/ovrtspd.1.gz" | groff -man -ww -z 2>&1)"
[ -z "$page" ] || fault "the man page: $page"

# Programs of another architecture run under an emulator, and say themselves what they are linked to.
emulator=()
list_linked=(ldd)
if [ -n "$sysroot" ]; then
    emulator=(qemu-arm -L "$sysroot")
    list_linked=("${emulator[@]}" -E LD_TRACE_LOADED_OBJECTS=1)
fi

# The server finds all it is linked to, ours in what was unpacked, and runs.
server="$scratch/root/usr/bin/ovrtspd"
export LD_LIBRARY_PATH="$scratch/root/$libdir"
linked="$("${list_linked[@]}" "$server")"
grep "not found" <<<"$linked" >&2 && fault "ovrtspd lacks libraries"
grep -q "libovmediacontrol.so.${version%%.*} => $scratch/root/" <<<"$linked" || fault "ovrtspd does not run on the packaged library"
[[ "$("${emulator[@]}" "$server" --version)" == *"$version"* ]] || fault "ovrtspd --version does not say $version"
"${emulator[@]}" "$server" --config "$scratch/root/etc/ovrtspd/ovrtspd.toml" --check-config >"$scratch/checked" 2>&1 ||
    { cat "$scratch/checked" >&2; fault "ovrtspd refuses the packaged configuration"; }
if [ -n "$sysroot" ]; then
    "$(dirname "${BASH_SOURCE[0]}")/play_emulated.sh" "$server" "$sysroot" "$libdir" || fault "the packaged server does not play"
fi
unset LD_LIBRARY_PATH

# The unit, with the server where it was unpacked to, because systemd looks whether it is there. An exposure of 2.0
# of 10 is "OK" in systemd's words; lower is better.
if command -v systemd-analyze >/dev/null; then
    unit="$scratch/ovrtspd.service"
    sed "s,=/usr/bin/,=$scratch/root/usr/bin/," "$scratch/root/usr/lib/systemd/system/ovrtspd.service" >"$unit"
    cp "$scratch"/root/usr/lib/systemd/system/ovrtspd*.socket "$scratch"
    systemd-analyze verify --man=no "$unit" "$scratch"/ovrtspd*.socket >"$scratch/verified" 2>&1 || fault "systemd refuses the unit"
    [ ! -s "$scratch/verified" ] || { cat "$scratch/verified" >&2; fault "systemd does not like the unit"; }
    systemd-analyze security --offline=true --threshold=20 --no-pager "$unit" >"$scratch/security" 2>&1 ||
        { cat "$scratch/security" >&2; fault "the unit leaves the server too much"; }
fi
exit "$failed"
