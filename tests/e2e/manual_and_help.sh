#!/usr/bin/env bash
# The manual page as man renders it holds every `hushmeadows help COMMAND`
# text line for line, roff has no warning, and the settings listed are the
# keys and values the program accepts.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/support/begin.sh" "$@"
page=$(dirname "$program")/../../packaging/hushmeadows.1
[ -f "$page" ] || fail "no manual page at $page (the packaging-files target makes it)"

warnings=$(groff -man -ww -z "$page" 2>&1) || true
[ -z "$warnings" ] || fail "roff warns about the page: $warnings"
LC_ALL=C MANWIDTH=200 man -l -P cat "$page" 2> man-err.txt | col -bx > page.txt
[ ! -s man-err.txt ] || fail "man: $(cat man-err.txt)"

# The commands as the program lists them, each with its usage.
"$program" help > help.txt
commands=$(sed -n '/^commands:/,$ s/^  \([a-z][a-z-]*\) .*/\1/p' help.txt | sort -u)
[ "$(echo "$commands" | wc -l)" -ge 7 ] || fail "help lists only: $commands"
: > topics.txt
cp help.txt topic-program.txt; echo topic-program.txt >> topics.txt
for command in $commands; do
  [ "$command" = help ] && continue
  "$program" help "$command" > "topic-$command.txt" || fail "help $command failed"
  cmp -s "topic-$command.txt" <("$program" "$command" --help) || fail "help $command and $command --help differ"
  echo "topic-$command.txt" >> topics.txt
done
python3 - page.txt topics.txt <<'PY' || fail "the manual page does not say what help says"
import sys
page = [l.rstrip() for l in open(sys.argv[1])]
for name in open(sys.argv[2]).read().split():
    help = [l.rstrip() for l in open(name)]
    def found_at(i):
        indent = page[i].find(help[0])
        return indent >= 0 and page[i][:indent].strip() == "" and all(
            i + k < len(page) and page[i + k] == (" " * indent + h if h else "") for k, h in enumerate(help))
    if not any(found_at(i) for i in range(len(page))):
        sys.exit(f"{name}: not in the page as printed:\n" + "\n".join(help))
PY

# What a user looks up: the variables, files, statuses, signals and idle watchers.
for word in XSCREENSAVER_WINDOW XDG_CONFIG_HOME XDG_DATA_HOME XDG_DATA_DIRS XDG_RUNTIME_DIR WAYLAND_DISPLAY DISPLAY \
  Settings.json Settings.json.lock hushmeadows-audio- /usr/share/hushmeadows/Worlds "EXIT STATUS" SIGNALS SIGTERM \
  "xss-lock -- hushmeadows saver" "swayidle -w timeout" "hushmeadows install-xscreensaver" "xautolock -time"; do
  grep -qF -- "$word" page.txt || fail "the manual page never mentions $word"
done

# The settings the usage text lists are the program's keys, and an enumerated
# key's values are those the program allows.
"$program" settings --file "$work/s.json" | python3 -c 'import json,sys; print("\n".join(sorted(json.load(sys.stdin))))' > keys.txt
sed -n '/^keys the saver reads:/,$ s/^  \([a-zA-Z ]*[a-zA-Z]\)  .*/\1/p' topic-settings.txt | tr ' ' '\n' | grep . | sort > listed.txt
diff -u keys.txt listed.txt || fail "help settings lists other keys than the program has"
while read -r key; do
  status=0; "$program" settings set "$key" '@' --file "$work/s.json" > /dev/null 2> refusal.txt || status=$?
  allowed=$(sed -n 's/.*(allowed: one of \(.*\))$/\1/p' refusal.txt | sed 's/, / /g')
  [ -n "$allowed" ] || continue
  line=$(grep -E "^  ([a-zA-Z]+ )*$key " topic-settings.txt)
  for value in $allowed; do
    echo "$line" | grep -qw -- "$value" || fail "help settings does not offer $value for $key: $line"
  done
done < keys.txt
echo "manual and help agree"
