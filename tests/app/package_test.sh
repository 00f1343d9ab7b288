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
            usr/share/zsh/vendor-completions/_nimbrell usr/share/fish/vendor_completions.d/nimbrell.fish \
            usr/share/applications/org.nimbrell.Nimbrell.desktop usr/share/doc/nimbrell/copyright \
            usr/share/man/man1/nimbrell.1.gz; do
  [ -e "$root/fs/$file" ] || { echo "missing from the package: $file"; exit 1; }
done
grep -qx 'ExecStart=/usr/bin/nimbrell --headless' "$root/fs/usr/lib/systemd/user/nimbrell.service"
dpkg-deb -f "$deb" Depends | grep -q 'libqt6core6'

nimbrell=$root/fs/usr/bin/nimbrell
export HOME=$root/home XDG_CONFIG_HOME=$root/home/.config XDG_RUNTIME_DIR=$root/run
mkdir -p "$XDG_RUNTIME_DIR" && chmod 700 "$XDG_RUNTIME_DIR"
"$nimbrell" --version | grep -qx 'nimbrell [0-9.]*'
"$nimbrell" --help | grep -q '^Usage: nimbrell'
# The manual page is made from --help: each command that --help lists is in it.
manual=$(zcat "$root/fs/usr/share/man/man1/nimbrell.1.gz" | sed -e 's/\\-/-/g' -e 's/\\f[BIRP]//g')
commands=$("$nimbrell" --help | sed -n 's/^  \([a-z]\+\( [a-z]\+\)*\)\( .*\)\?$/\1/p')
[ "$(wc -l <<<"$commands")" -ge 15 ]
while read -r command; do
  grep -q "^$command\b" <<<"$manual" || { echo "the manual page lacks: $command"; exit 1; }
done <<<"$commands"
status=$("$nimbrell" status --json)
grep -q '"instance":null' <<<"$status" && grep -q '"folders":\[' <<<"$status"
# The bundled rclone is the one it runs.
grep -q '"remotes":\[' <<<"$("$nimbrell" remotes --json)"
# Completion names storage kinds, remotes and folders, from the program.
mkdir -p "$HOME/.config/rclone" "$root/docs"
printf '[my nas]\ntype = alias\nremote = %s\n' "$root/docs" > "$HOME/.config/rclone/rclone.conf"
"$nimbrell" folders add Docs "$root/docs" "my nas:Docs" >/dev/null
complete_bash() {  # complete_bash WORD...: what Tab offers for the last word
  PATH="$root/fs/usr/bin:$PATH" bash -c 'source "$0"; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _nimbrell
                                         printf "%s\n" "${COMPREPLY[@]}"' \
    "$root/fs/usr/share/bash-completion/completions/nimbrell" "$@"
}
complete_bash nimbrell remotes add x webd | grep -qx webdav
complete_bash nimbrell remotes test "my" | grep -qx 'my\\ nas'
complete_bash nimbrell folders edit D | grep -qx Docs
complete_bash nimbrell folders edit Docs --conflict n | grep -qx newerWins

# The file manager integrations: packages of their own, on top of nimbrell's,
# whose emblems they show.
ls "$root/fs/usr/share/icons/hicolor/scalable/emblems/nimbrell-conflict-symbolic.svg" >/dev/null
nautilus=$(ls "$root"/out/nimbrell-nautilus_*_all.deb)
grep -q './usr/share/nautilus-python/extensions/nimbrell.py$' <<<"$(dpkg-deb -c "$nautilus")"
dpkg-deb -f "$nautilus" Depends | grep -q '^nimbrell (= [0-9.]*), python3-nautilus'
if dolphin=$(ls "$root"/out/nimbrell-dolphin_*_amd64.deb 2>/dev/null); then
  contents=$(dpkg-deb -c "$dolphin")
  grep -q 'kf5/overlayicon/.*\.so$' <<<"$contents" && grep -q 'kf5/kfileitemaction/.*\.so$' <<<"$contents"
  dpkg-deb -f "$dolphin" Depends | grep -q 'libkf5kiocore5'
fi
echo "package ok: $(basename "$deb")"
