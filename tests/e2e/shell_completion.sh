#!/usr/bin/env bash
# The bash, zsh and fish completions, each in its own shell, offer what the
# program accepts: commands and options (its usage text), settings keys and
# values (`hushmeadows settings` and its refusals) and world ids (`list`).
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
source "$(dirname "${BASH_SOURCE[0]}")/support/begin.sh" "$@"
scripts=$here/../../packaging/completions
command -v zsh > /dev/null && command -v fish > /dev/null || fail "zsh and fish are needed (tools/install-deps.sh)"

# The program as a user's shell finds it, on private folders.
mkdir -p bin config data empty
ln -s "$program" bin/hushmeadows
export PATH=$work/bin:$PATH XDG_CONFIG_HOME=$work/config XDG_DATA_HOME=$work/data XDG_DATA_DIRS=$work/none
settings=$work/config/hushmeadows/Settings.json

# A second world beside the bundled one, so that the ids come from the library.
mkdir -p data/hushmeadows/Worlds
cp -r "$(dirname "$program")/Resources/Worlds/meadow.hushmeadow" data/hushmeadows/Worlds/dusk.hushmeadow
sed -i 's/"id": *"meadow"/"id": "dusk"/' data/hushmeadows/Worlds/dusk.hushmeadow/world.json
hushmeadows list | awk -F'\t' '$1 == "*" || $1 == " " { print $2 }' | sort > worlds.txt
[ "$(cat worlds.txt | paste -sd' ')" = "dusk meadow" ] || fail "the library holds $(cat worlds.txt), expected dusk and meadow"

# What each line should complete to, from the program.
commands=$(hushmeadows help | sed -n '/^commands:/,$ s/^  \([a-z][a-z-]*\) .*/\1/p' | sort -u)
options_of() { hushmeadows help "$1" | grep -o -- '--[a-z][a-z-]*' | grep -vx -- --help | sort -u; echo --help; }
hushmeadows settings | python3 -c 'import json,sys; [print(k, json.dumps(v)) for k, v in json.load(sys.stdin).items()]' > defaults.txt
values_of() { # key default
  local refusal
  if [ "$1" = selectedWorldID ]; then cat worlds.txt; echo null; return; fi
  refusal=$(hushmeadows settings set "$1" '@' 2>&1 > /dev/null || true)
  case $refusal in
    *"(allowed: one of "*) refusal=${refusal##*one of }; echo "${refusal%)}" | tr -d ',' | tr ' ' '\n' ;;
    *"(allowed: true or false)"*) printf '%s\n' true false ;;
  esac
  [ "$2" != null ] || echo null
}
[ ! -e "$settings" ] || fail "a refused value was saved"

cases=()
add() { cases+=("$1|$(printf '%s\n' "${@:2}" | { grep . || true; } | sort -u | paste -sd' ')"); }
add "hushmeadows " $commands
add "hushmeadows -" --version --help
add "hushmeadows help " $commands
add "hushmeadows settings " set
add "hushmeadows settings set " $(cut -d' ' -f1 defaults.txt)
while read -r key default; do
  add "hushmeadows settings set $key " $(values_of "$key" "$default")
done < defaults.txt
add "hushmeadows settings --file $settings set framing " $(values_of framing '"fill"')
add "hushmeadows play " $(cat worlds.txt)
add "hushmeadows render-audio --seconds 3 " $(cat worlds.txt)
add "hushmeadows play meadow "
add "hushmeadows play --framing " fill wholeScene
add "hushmeadows render-audio --phase " day night
for command in $commands; do
  [ "$command" = help ] || add "hushmeadows $command --" $(options_of "$command")
done

complete_bash() {
  bash -c 'source "$1"; read -ra COMP_WORDS <<< "$2"; [[ $2 == *" " ]] && COMP_WORDS+=(""); COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    _hushmeadows; printf "%s\n" "${COMPREPLY[@]}"' _ "$scripts/hushmeadows.bash" "$1" 2> /dev/null
}
complete_zsh() {
  # compadd keeps the candidates that start with the word being completed.
  zsh -f -c 'compadd() { while (( $# )) && [[ $1 != -- ]]; do shift; done; shift
      local w; for w; do [[ $w == ${words[CURRENT]}* ]] && print -r -- $w; done; return 0; }
    _files() { :; }
    source "$1" 2> /dev/null
    words=(${(z)2}); [[ $2 == *" " ]] && words+=(""); CURRENT=${#words}
    _hushmeadows' _ "$scripts/_hushmeadows" "$1"
}
complete_fish() {
  fish -c 'source $argv[1]; complete -C $argv[2]' "$scripts/hushmeadows.fish" "$1" | cut -f1
}

failures=0
cd empty
for entry in "${cases[@]}"; do
  line=${entry%%|*}; expected=${entry#*|}
  for shell in bash zsh fish; do
    got=$(complete_$shell "$line" | grep . | sort -u | paste -sd' ' || true)
    if [ "$got" != "$expected" ]; then
      echo "$shell: '$line' completes to '$got', expected '$expected'" >&2
      failures=$((failures + 1))
    fi
  done
done
[ "$failures" = 0 ] || fail "$failures completions differ from what the program accepts"
echo "completions: ${#cases[@]} lines agree in bash, zsh and fish"
