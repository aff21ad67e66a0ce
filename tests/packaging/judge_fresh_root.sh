#!/usr/bin/env bash
# usage: judge_fresh_root.sh <scratch folder with the packages in made/> <folder of a fresh system>
# Installs the packages on the fresh system, boots it, and judges what an administrator meets there: the service under
# its own user and shut in, streams that play, upgrades that leave what he changed, and nothing left when all is purged.
# The system sees no network but its own loopback, and the folder stays as it is. To be run in namespaces of its own for
# mounts and processes. Ends with 77 where the system cannot be booted.
set -euo pipefail
scratch="$1"
base="$2"
# shellcheck source=faults.sh
. "$(dirname "${BASH_SOURCE[0]}")/faults.sh"

# systemd-nspawn keeps its own lists here.
mkdir -p /run/systemd
mount -t tmpfs tmpfs /run/systemd
# The fresh system as it was made lies below, and whatever is done to it in memory.
mkdir "$scratch/memory"
mount -t tmpfs tmpfs "$scratch/memory"
root="$scratch/memory/root"
mkdir "$root" "$scratch/memory/changed" "$scratch/memory/work"
mount -t overlay overlay -o "lowerdir=$base,upperdir=$scratch/memory/changed,workdir=$scratch/memory/work" "$root"
cp "$scratch"/made/*.deb "$root/root/"
# A version to come, whose configuration differs.
server="$(echo "$scratch"/made/ovrtspd_*.deb)"
dpkg-deb -R "$server" "$scratch/next"
sed -i 's/^Version: .*/&+next/' "$scratch/next/DEBIAN/control"
echo "# new in this version" >>"$scratch/next/etc/ovrtspd/ovrtspd.toml"
dpkg-deb -Znone -b "$scratch/next" "$root/root/next.deb" >/dev/null

# in_root <command…>: without systemd, as where systems' images are made.
in_root() {
    chroot "$root" env DEBIAN_FRONTEND=noninteractive "$@"
}

# quietly <command…>: what it prints is only of interest when it fails.
quietly() {
    "$@" >"$scratch/log" 2>&1 || { cat "$scratch/log" >&2; fault "failed: $*"; }
}

# The system as files, without what any running system writes and dpkg's own lists; and its users.
inventory() {
    in_root find / -xdev -regextype egrep \
        -regex '/(root|run|tmp|var/cache|var/log|var/lib/(apt|dbus|dpkg|systemd/(linger|timers)))' -prune \
        -o -printf '%p %y %m %u:%g %l\n' | sort
    in_root cat /etc/passwd /etc/group
}

owner_and_mode() {
    in_root stat -c '%n %U:%G %a' "$@"
}

boot() {
    systemd-nspawn --directory="$root" --machine=fresh --boot --private-network --register=no --keep-unit \
        --link-journal=no --resolv-conf=off --timezone=off --suppress-sync=yes --capability=CAP_IPC_LOCK \
        --system-call-filter="landlock_create_ruleset landlock_add_rule landlock_restrict_self" \
        --console=pipe </dev/null >"$scratch/boot.log" 2>&1 &
    nspawn=$!
    leader=
    local tries
    for ((tries = 0; tries < 600; tries++)); do
        read -r leader <"/proc/$nspawn/task/$nspawn/children" || true
        if [ -S "/proc/$leader/root/run/systemd/private" ]; then
            inside systemctl is-system-running --wait >"$scratch/booted" || true
            return 0
        fi
        kill -0 "$nspawn" 2>/dev/null || break
        sleep 0.1
    done
    cat "$scratch/boot.log" >&2
    echo "the fresh system cannot be booted here: its systemd does not answer" >&2
    exit 77
}

# inside <command…>: in the booted system.
inside() {
    nsenter --target "$leader" --all env DEBIAN_FRONTEND=noninteractive "$@"
}

unit() {
    inside systemctl show ovrtspd.service --property "$1" --value
}

# Waits until the service says that it is serving, in its present run.
serving() {
    timeout 60 grep -q -m 1 "is serving" <(inside journalctl --follow --lines all --output cat "_SYSTEMD_INVOCATION_ID=$(unit InvocationID)") ||
        { inside journalctl --no-pager --unit ovrtspd.service >&2; fault "the service does not serve $*"; }
}

# play <port> <stream> <transport>: three frames of it, by a player of this machine that sees the other's loopback.
play() {
    nsenter --target "$leader" --net timeout 60 ffprobe -v error -rtsp_transport "$3" -read_intervals '%+#15' -count_frames \
        -show_entries stream=codec_name,width,height -of csv=p=0 "rtsp://127.0.0.1:$1/orv/live/1/$2" 2>&1
}

config=/etc/ovrtspd/ovrtspd.toml
# They would look for updates meanwhile.
quietly in_root systemctl mask apt-daily.timer apt-daily-upgrade.timer
inventory >"$scratch/before"

# Installed where no systemd runs.
quietly in_root sh -c 'dpkg -i /root/*_*.deb'
same "who owns the files" "/etc/ovrtspd root:root 755
$config root:ovrtspd 640
/usr/bin/ovrtspd root:root 755" "$(owner_and_mode /etc/ovrtspd "$config" /usr/bin/ovrtspd)"
same "the server's user" "/var/lib/ovrtspd:/usr/sbin/nologin" "$(in_root getent passwd ovrtspd | cut -d: -f 6-)"
[ "$(in_root id -u ovrtspd)" -lt 1000 ] || fault "the server's user is not the system's"
same "what is enabled" "enabled" "$(in_root systemctl is-enabled ovrtspd.service)"

boot
serving "after booting"
same "the service" "active" "$(inside systemctl is-active ovrtspd.service)"
pid="$(unit MainPID)"
same "what the server may" "Uid: ovrtspd
Gid: ovrtspd
CapEff: 0000000000000000
CapBnd: 0000000000000000
NoNewPrivs: 1
Seccomp: 2" "$(inside awk -v uid="$(in_root id -u ovrtspd)" -v gid="$(in_root id -g ovrtspd)" \
    '/^(CapEff|CapBnd|NoNewPrivs|Seccomp):/ { print $1, $2 } /^Uid:/ { print $1, $2 == uid ? "ovrtspd" : $2 }
    /^Gid:/ { print $1, $2 == gid ? "ovrtspd" : $2 }' "/proc/$pid/status")"
same "what the server can write" "/tmp
/var/lib/ovrtspd
/var/tmp" "$(inside nsenter --target "$pid" --mount setpriv --reuid ovrtspd --regid ovrtspd --init-groups \
    find / -xdev -type d -writable -not -path '/var/lib/ovrtspd/*' 2>/dev/null | sort)"
same "the state folder" "/var/lib/ovrtspd ovrtspd:ovrtspd 750" "$(owner_and_mode /var/lib/ovrtspd)"
quietly inside systemd-analyze security --threshold=20 --no-pager ovrtspd.service

same "stream 0 over UDP" "h264,1280,720
pcm_mulaw" "$(play 8554 0 udp)"
same "stream 1 over TCP" "h264,640,360
pcm_mulaw" "$(play 8554 1 tcp)"
same "what the server wrote elsewhere" "" "$(inside find / -xdev -user ovrtspd -not -path '/var/lib/ovrtspd*')"

[[ "$(unit Type) $(unit StatusText)" =~ ^notify\ [0-2]\ of\ 2\ streams\ running,\ [0-9]\ viewers?$ ]] ||
    fault "the service reports \"$(unit StatusText)\""

inside journalctl --no-pager --unit ovrtspd.service | grep -q "sandbox: no new privileges; system calls filtered; files limited" ||
    { inside journalctl --no-pager --unit ovrtspd.service | grep "sandbox" >&2; fault "the service does not limit itself"; }

# Port 554, opened by systemd.
inside systemctl stop ovrtspd.service
quietly inside systemctl enable --now ovrtspd.socket
quietly inside systemctl start ovrtspd.service
serving "the socket"
same "stream 0 on port 554" "h264,1280,720
pcm_mulaw" "$(play 554 0 tcp)"
same "the capabilities on port 554" "CapEff: 0000000000000000" \
    "$(inside awk '/^CapEff:/ { print $1, $2 }' "/proc/$(unit MainPID)/status")"
quietly inside systemctl disable --now ovrtspd.socket
quietly inside systemctl restart ovrtspd.service
serving "after its socket was closed"

stopping="$SECONDS"
inside systemctl stop ovrtspd.service
[ "$((SECONDS - stopping))" -lt 10 ] || fault "the service took $((SECONDS - stopping)) s to end"
same "how the service ended" "success" "$(unit Result)"

# A wrong configuration does not get better by being tried again.
inside cp -p "$config" /root/right.toml
inside sed -i 's/^port = 8554$/port = "none"/' "$config"
inside systemctl start ovrtspd.service || true
for ((tries = 0; tries < 300; tries++)); do
    case "$(unit SubState)" in failed | auto-restart) break ;; esac
    sleep 0.1
done
same "the service with a wrong configuration" "failed 3 0" "$(unit SubState) $(unit ExecMainStatus) $(unit NRestarts)"
inside cp -p /root/right.toml "$config"
inside systemctl reset-failed ovrtspd.service

# A service that the administrator disabled and a configuration that he removed do not come back.
quietly inside systemctl disable ovrtspd.service
inside rm "$config"
quietly inside dpkg --force-confold -i "/root/${server##*/}"
same "what was disabled" "disabled inactive" "$(inside systemctl is-enabled ovrtspd.service) $(inside systemctl is-active ovrtspd.service)"
same "what was removed" "" "$(in_root find /etc/ovrtspd -type f)"

# A configuration that the administrator changed, and its dpkg-statoverride, survive an upgrade with another one.
quietly inside dpkg --force-confmiss -i "/root/${server##*/}"
quietly inside systemctl enable --now ovrtspd.service
inside sed -i 's/^port = 8554$/port = 8600/' "$config"
inside dpkg-statoverride --update --add root adm 644 "$config"
quietly inside dpkg --force-confold -i /root/next.deb
same "the version" "$(dpkg-deb -f "$server" Version)+next" "$(in_root dpkg-query -W -f '${Version}' ovrtspd)"
same "who owns the configuration" "$config root:adm 644" "$(owner_and_mode "$config")"
serving "after the upgrade"
same "the changed port" "h264,640,360
pcm_mulaw" "$(play 8600 1 tcp)"

pid="$(unit MainPID)"
quietly inside apt-get -y purge ovrtspd '^libovmediacontrol'
inside test ! -e "/proc/$pid" || fault "the purged server still runs"
kill -s RTMIN+4 "$leader" # poweroff
wait "$nspawn" || fault "the system ended with $?"
inventory >"$scratch/after"
diff -u "$scratch/before" "$scratch/after" >&2 || fault "purging does not leave the system as it was"
exit "$failed"
