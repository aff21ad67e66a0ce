#!/usr/bin/env bash
# usage: make-sysroot.sh <Debian architecture> <folder>
# Unpacks what the server and its tests are built with and run on, for another architecture, into a folder: the
# packages that debian-packages.txt marks with "# target", and all that they depend on. Nothing is installed: this
# machine's package tools are asked for another architecture's packages in a place of their own, no root is needed, and
# no maintainer script runs. Beside the files stands a package database, by which dpkg-shlibdeps finds what a binary
# depends on. Does and says nothing when the folder is as it should be. OV_DEBIAN_MIRROR is the mirror to take packages
# from.
set -euo pipefail
architecture="$1"
folder="$(realpath -m "$2")"
mirror="${OV_DEBIAN_MIRROR:-http://deb.debian.org/debian}"
here="$(dirname "${BASH_SOURCE[0]}")"

mapfile -t wanted < <(sed -n 's/[[:space:]]*# target$//p' "$here/debian-packages.txt")
made_of="$folder $architecture $mirror ${wanted[*]} $(sha256sum <"${BASH_SOURCE[0]}")"
if [ "$(cat "$folder/made-of" 2>/dev/null)" = "$made_of" ]; then
    exit 0
fi
echo "Unpacking ${#wanted[@]} packages for $architecture, and what they depend on, into $folder" >&2
triplet="$(dpkg-architecture -a "$architecture" -q DEB_HOST_MULTIARCH)"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

mkdir -p "$work"/{sources,lists/partial,cache/archives/partial}
: >"$work/status"
cat >"$work/sources/debian.sources" <<END
Types: deb
URIs: $mirror
Suites: bookworm
Components: main
Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg
END
cat >"$work/apt.conf" <<END
APT::Architecture "$architecture";
APT::Architectures { "$architecture"; };
APT::Sandbox::User "$(id -un)";
Acquire::Languages "none";
Acquire::Retries "3";
Debug::NoLocking "true";
Dir::Cache "$work/cache";
Dir::Etc::sourcelist "/dev/null";
Dir::Etc::sourceparts "$work/sources";
Dir::State::lists "$work/lists";
Dir::State::status "$work/status";
END
fetch() {
    APT_CONFIG="$work/apt.conf" apt-get -qq "$@" </dev/null >"$work/fetch.log" 2>&1 ||
        { cat "$work/fetch.log" >&2; exit 1; }
}
fetch update
fetch install -y --download-only --no-install-recommends "${wanted[@]}"

# unpack <package file>: its files into $root, its control files into the database there. The lists of files say where
# the files are on this machine.
unpack() {
    local deb="$1" info="$root/var/lib/dpkg/info" name control same file
    name="$(dpkg-deb -f "$deb" Package)"
    same="$(dpkg-deb -f "$deb" Multi-Arch)"
    [ "$same" != same ] || name="$name:$architecture"
    control="$work/control/${deb##*/}"
    dpkg-deb --fsys-tarfile "$deb" |
        tar -xvf - -C "$root" --no-same-owner --exclude="./usr/share/"{doc,man,info,locale,gir-1.0,icons,perl} |
        sed "s,^\./*,$folder/,; s,/\$,," >"$info/$name.list"
    dpkg-deb -e "$deb" "$control"
    for file in symbols shlibs; do
        [ ! -f "$control/$file" ] || cp "$control/$file" "$info/$name.$file"
    done
    { cat "$control/control"; echo "Status: install ok installed"; echo; } >"$control.status"
    rm "$deb"
}
export -f unpack
export architecture folder work
export root="$folder.new"
rm -rf "$root"
mkdir -p "$root/var/lib/dpkg/info" "$work/control"
echo 1 >"$root/var/lib/dpkg/info/format"
find "$work/cache/archives" -name '*.deb' -print0 |
    xargs -0 -P "$(nproc)" -I{} bash -euo pipefail -c 'unpack "$1"' unpack {}
cat "$work/control/"*.status >"$root/var/lib/dpkg/status"

# A link to a place on the system it was made for means that place in here.
find "$root" -type l -lname '/*' -print0 | while IFS= read -r -d '' link; do
    ln -snf "$(realpath -m --relative-to="$(dirname "$link")" "$root$(readlink "$link")")" "$link"
done
# Libraries of which a system may have several: a maintainer script would have linked one.
for library in blas/libblas.so.3 lapack/liblapack.so.3; do
    [ ! -e "$root/usr/lib/$triplet/$library" ] || ln -snf "$library" "$root/usr/lib/$triplet/${library##*/}"
done

echo "$made_of" >"$root/made-of"
rm -rf "$folder"
mv "$root" "$folder"
