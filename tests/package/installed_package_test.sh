#!/usr/bin/env bash
# Installs Corvel's Debian package as a user would, checks what it put on the desktop, takes one
# test-line call with the installed corvel on a session bus of its own, and removes it again.
set -euo pipefail
package=$(realpath "$1")
here=$(dirname "$(realpath "$0")")
sudo=()
[[ $(id -u) -eq 0 ]] || sudo=(sudo)
export DEBIAN_FRONTEND=noninteractive

"${sudo[@]}" apt-get install -y -qq --no-install-recommends "$package" >/dev/null
trap '"${sudo[@]}" apt-get remove -y -qq corvel >/dev/null' EXIT

/usr/bin/corvel --version
desktop-file-validate /usr/share/applications/org.corvel.Corvel.desktop
appstreamcli validate --no-net /usr/share/metainfo/org.corvel.Corvel.metainfo.xml
# The manual page is in the package; a machine that keeps no manual pages (dpkg's path-exclude)
# leaves it out on installing.
dpkg-deb -c "$package" | grep ' ./usr/share/man/man1/corvel.1.gz$' >/dev/null
[[ ! -f /usr/share/man/man1/corvel.1.gz ]] || man -w corvel
for size in 16x16 22x22 24x24 32x32 48x48 64x64 128x128 256x256 scalable; do
  ls /usr/share/icons/hicolor/$size/apps/org.corvel.Corvel.* >/dev/null
done
grep -q '^ExecStart=/usr/bin/corvel --headless$' /usr/lib/systemd/user/corvel-headless.service

dbus-run-session -- "$here/test_line_call.sh" /usr/bin/corvel
echo "the installed package works"
