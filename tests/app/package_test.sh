#!/usr/bin/env bash
# The Debian package holds a working program: built from the install rules,
# unpacked into an empty root, its nimbrell answers --version, --help and
# status --json without anything else of the build.
set -euo pipefail
build=$1
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT

(cd "$build" && cpack -G DEB -B "$root/out" >/dev/null)
deb=$(ls "$root"/out/nimbrell_*_amd64.deb)
dpkg-deb -x "$deb" "$root/fs"
for file in usr/bin/nimbrell usr/libexec/nimbrell/nimbrell usr/libexec/nimbrell/rclone \
            usr/lib/systemd/user/nimbrell.service usr/share/bash-completion/completions/nimbrell \
            usr/share/applications/org.nimbrell.Nimbrell.desktop usr/share/doc/nimbrell/copyright; do
  [ -e "$root/fs/$file" ] || { echo "missing from the package: $file"; exit 1; }
done
grep -qx 'ExecStart=/usr/bin/nimbrell --headless' "$root/fs/usr/lib/systemd/user/nimbrell.service"
dpkg-deb -f "$deb" Depends | grep -q 'libqt6core6'

nimbrell=$root/fs/usr/bin/nimbrell
export HOME=$root/home XDG_CONFIG_HOME=$root/home/.config XDG_RUNTIME_DIR=$root/run
mkdir -p "$XDG_RUNTIME_DIR" && chmod 700 "$XDG_RUNTIME_DIR"
"$nimbrell" --version | grep -qx 'nimbrell [0-9.]*'
"$nimbrell" --help | grep -q '^Usage: nimbrell'
status=$("$nimbrell" status --json)
grep -q '"instance":null' <<<"$status" && grep -q '"folders":\[' <<<"$status"
# The bundled rclone is the one it runs.
grep -q '"remotes":\[' <<<"$("$nimbrell" remotes --json)"
echo "package ok: $(basename "$deb")"
