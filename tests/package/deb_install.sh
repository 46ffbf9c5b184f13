#!/usr/bin/env bash
# The Debian package as a machine meets it: lintian finds no error, desktop
# entry and metainfo validate, and twice in a row it installs with dpkg -i,
# works from /usr, owns what it brings and leaves nothing behind when purged.
# Needs root (or sudo): it changes the machine.
#   bash tests/package/deb_install.sh build/release/hushmeadows_VERSION_ARCH.deb WORK
set -euo pipefail
deb=$(realpath "$1")
work=$(realpath -m "${2:-$(dirname "$deb")/deb-install-test}")
rm -rf "$work"; mkdir -p "$work"; cd "$work"
fail() { echo "FAIL: $*" >&2; exit 1; }
as_root() { if [ "$(id -u)" = 0 ]; then "$@"; else sudo "$@"; fi; }
# Someone else's apt-get may hold dpkg's lock for a while: wait for it.
dpkg_() {
  local out
  for _ in $(seq 300); do
    if out=$(as_root env DEBIAN_FRONTEND=noninteractive dpkg "$@" 2>&1); then echo "$out" > dpkg.log; return 0; fi
    grep -q 'lock' <<< "$out" || { echo "$out" >&2; return 1; }
    sleep 1
  done
  fail "dpkg's lock stayed taken"
}

package=$(dpkg-deb -f "$deb" Package) version=$(dpkg-deb -f "$deb" Version) arch=$(dpkg-deb -f "$deb" Architecture)
[ "$(basename "$deb")" = "${package}_${version}_${arch}.deb" ] || fail "$(basename "$deb") is not named PACKAGE_VERSION_ARCH.deb"
[ "$package" = hushmeadows ] || fail "the package is called $package"
state() { dpkg-query -W -f='${db:Status-Status}' hushmeadows 2> /dev/null || true; }
if [ -n "$(state)" ] && [ "$(state)" != not-installed ]; then
  fail "hushmeadows is already installed here; this test would replace it"
fi

# Dependencies found by dpkg-shlibdeps; nothing runs at install time.
depends=$(dpkg-deb -f "$deb" Depends)
for library in libavformat libsdl2 libc6 libstdc++6; do
  grep -q "$library" <<< "$depends" || fail "Depends lacks $library: $depends"
done
[ "$(dpkg-deb -f "$deb" Recommends)" = "xscreensaver | swayidle | xss-lock" ] || fail "Recommends: $(dpkg-deb -f "$deb" Recommends)"
scripts=$(dpkg-deb --ctrl-tarfile "$deb" | tar -t | grep -E 'preinst|postinst|prerm|postrm|config' || true)
[ -z "$scripts" ] || fail "the package has maintainer scripts: $scripts"

# lintian: no error; what else it says is printed for the record.
lintian --fail-on error --display-info --tag-display-limit 0 "$deb" > lintian.txt 2>&1 || { cat lintian.txt >&2; fail "lintian reports errors"; }
echo "lintian:"; sed 's/^/  /' lintian.txt

dpkg-deb -x "$deb" contents
desktop=contents/usr/share/applications/app.hushmeadows.hushmeadows.desktop
metainfo=contents/usr/share/metainfo/app.hushmeadows.hushmeadows.metainfo.xml
desktop-file-validate "$desktop" || fail "the desktop entry does not validate"
appstreamcli validate --no-net --pedantic "$metainfo" > appstream.txt 2>&1 || { cat appstream.txt >&2; fail "the metainfo does not validate"; }
for path in usr/bin/hushmeadows usr/share/hushmeadows/Worlds/meadow.hushmeadow/world.json \
  usr/share/xscreensaver/config/hushmeadows.xml usr/share/man/man1/hushmeadows.1.gz \
  usr/share/bash-completion/completions/hushmeadows usr/share/zsh/vendor-completions/_hushmeadows \
  usr/share/fish/vendor_completions.d/hushmeadows.fish usr/share/icons/hicolor/scalable/apps/app.hushmeadows.hushmeadows.svg \
  usr/share/doc/hushmeadows/copyright usr/share/doc/hushmeadows/changelog.gz; do
  [ -f "contents/$path" ] || fail "the package lacks /$path"
done
grep -q "^Exec=hushmeadows play$" "$desktop" || fail "the desktop entry does not start the viewer"

# Everything outside the home folders and the places that change on their
# own; the triggers' caches are rebuilt by other packages and stay theirs.
snapshot() {
  find /usr /etc /opt -xdev \( -path /usr/share/applications/mimeinfo.cache -o -name icon-theme.cache -o -name '*.pyc' \) -prune \
    -o -print 2> /dev/null | sort
}
home=$work/home; mkdir -p "$home"
# A failed round leaves no package behind on the machine either.
trap '[ "$(state)" = installed ] && as_root dpkg --purge hushmeadows > /dev/null 2>&1' EXIT
user_env() { env -i HOME="$home" PATH=/usr/bin:/bin LC_ALL=C.UTF-8 "$@"; }

for round in 1 2; do
  snapshot > before-$round.txt
  dpkg_ -i "$deb" || fail "round $round: dpkg -i failed"
  [ "$(state)" = installed ] || fail "round $round: $(state) after dpkg -i"

  [ "$(user_env hushmeadows --version)" = "hushmeadows $version" ] || fail "round $round: hushmeadows --version says $(user_env hushmeadows --version)"
  user_env hushmeadows list > list.txt 2> list-err.txt || fail "round $round: hushmeadows list failed: $(cat list-err.txt)"
  printf '*\tmeadow\t%s\t/usr/share/hushmeadows/Worlds/meadow.hushmeadow\tbundled\n' "$(cut -f3 list.txt | head -1)" > expected-list.txt
  diff -u expected-list.txt list.txt || fail "round $round: hushmeadows list does not show the bundled world alone"
  [ "$(user_env man -w hushmeadows)" = /usr/share/man/man1/hushmeadows.1.gz ] || fail "round $round: man -w hushmeadows says $(user_env man -w hushmeadows)"
  user_env man hushmeadows > page.txt 2> /dev/null || true
  grep -q 'XSCREENSAVER_WINDOW' page.txt || fail "round $round: man hushmeadows does not show the page"
  user_env bash -c 'source /usr/share/bash-completion/completions/hushmeadows && COMP_WORDS=(hushmeadows play ""); COMP_CWORD=2;
    _hushmeadows; printf "%s\n" "${COMPREPLY[@]}"' > completion.txt
  grep -qx meadow completion.txt || fail "round $round: the installed bash completion does not offer meadow"

  # Everything new is owned, by this package or (a trigger's output) another.
  dpkg-query -L hushmeadows | sort > owned.txt
  snapshot > installed-$round.txt
  comm -13 before-$round.txt installed-$round.txt > new.txt
  while read -r path; do
    grep -qxF "$path" owned.txt || dpkg-query -S "$path" > /dev/null 2>&1 || fail "round $round: $path appeared and no package owns it"
  done < new.txt
  [ -z "$(ls -A "$home")" ] || fail "round $round: the package wrote into the user's home: $(ls -A "$home")"

  dpkg_ --purge hushmeadows || fail "round $round: removing failed"
  [ -z "$(state)" ] || [ "$(state)" = not-installed ] || fail "round $round: still $(state) after purging"
  # Nothing new is left that no package owns: once purged, its own files are owned by none.
  snapshot > after-$round.txt
  left=$(comm -13 before-$round.txt after-$round.txt | while read -r path; do dpkg-query -S "$path" > /dev/null 2>&1 || echo "$path"; done)
  [ -z "$left" ] || fail "round $round: left behind: $left"
done
echo "package: $(basename "$deb") installs, works and leaves nothing behind, twice"
