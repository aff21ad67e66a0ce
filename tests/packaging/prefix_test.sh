#!/usr/bin/env bash
# usage: prefix_test.sh <build folder>
# Installs the server under a prefix of its own, below a scratch folder: all of it lies below the prefix, unit and man
# page name it there, and installing again keeps the configuration that the administrator changed.
set -euo pipefail
build="$1"
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT

install_into() {
    DESTDIR="$scratch/$1" cmake --install "$build" --prefix "$2" --component server >/dev/null
    (cd "$scratch/$1" && find . -type f | sort)
}

diff - <(install_into own /opt/cameras) <<'END'
./opt/cameras/bin/ovrtspd
./opt/cameras/etc/ovrtspd/ovrtspd.toml
./opt/cameras/lib/systemd/system/ovrtspd-tls.socket
./opt/cameras/lib/systemd/system/ovrtspd.service
./opt/cameras/lib/systemd/system/ovrtspd.socket
./opt/cameras/share/doc/ovrtspd/fail2ban/jail.conf
./opt/cameras/share/doc/ovrtspd/fail2ban/ovrtspd.conf
./opt/cameras/share/doc/ovrtspd/monitoring/ovrtspd-alerts.yml
./opt/cameras/share/doc/ovrtspd/monitoring/ovrtspd-dashboard.json
./opt/cameras/share/man/man1/ovrtspd.1
END
diff - <(install_into system /usr) <<'END'
./etc/ovrtspd/ovrtspd.toml
./usr/bin/ovrtspd
./usr/lib/systemd/system/ovrtspd-tls.socket
./usr/lib/systemd/system/ovrtspd.service
./usr/lib/systemd/system/ovrtspd.socket
./usr/share/doc/ovrtspd/fail2ban/jail.conf
./usr/share/doc/ovrtspd/fail2ban/ovrtspd.conf
./usr/share/doc/ovrtspd/monitoring/ovrtspd-alerts.yml
./usr/share/doc/ovrtspd/monitoring/ovrtspd-dashboard.json
./usr/share/man/man1/ovrtspd.1
END

# paths <root>: what unit and man page say of programs and configuration.
paths() {
    find "$scratch/$1" \( -name ovrtspd.service -o -name ovrtspd.1 \) -exec grep -ohE '(/[a-z]+)*/(bin|etc)/[a-z/.]+' {} + | sort -u
}
diff - <(paths own) <<'END'
/opt/cameras/bin/ovrtspd
/opt/cameras/etc/ovrtspd/ovrtspd.toml
END
diff - <(paths system) <<'END'
/etc/ovrtspd/ovrtspd.toml
/usr/bin/ovrtspd
END

echo "# the administrator's" >>"$scratch/own/opt/cameras/etc/ovrtspd/ovrtspd.toml"
install_into own /opt/cameras >/dev/null
grep -q "^# the administrator's" "$scratch/own/opt/cameras/etc/ovrtspd/ovrtspd.toml" ||
    { echo "installing again took the administrator's configuration away" >&2; exit 1; }
