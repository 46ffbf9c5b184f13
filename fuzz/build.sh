#!/usr/bin/env bash
# Builds every fuzz/*Fuzzer.cpp as a libFuzzer target with clang 14, and
# optionally runs each one for a while.
#
#   fuzz/build.sh [OUTDIR] [--run SECONDS]
#
# OUTDIR defaults to build/fuzz under the repository. Each target lists the
# core sources it needs in its own "// fuzz-sources:" lines; they must be
# C++20-clean, since clang 14 has no C++23 mode and cannot use std::expected.
# With --run, each target runs for SECONDS on a working corpus in
# OUTDIR/corpus/<Target>, seeded from fuzz/corpus/<Target> (left untouched);
# crashing inputs land in OUTDIR/artifacts/<Target>/. The script exits
# non-zero when any build or run fails.
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
root="$(cd "$here/.." && pwd)"
out="$root/build/fuzz"
run_seconds=""

while [ $# -gt 0 ]; do
  case "$1" in
    --run)
      [ $# -ge 2 ] || { echo "usage: $0 [OUTDIR] [--run SECONDS]" >&2; exit 2; }
      run_seconds="$2"; shift 2 ;;
    -h|--help)
      sed -n '2,14p' "$0"; exit 0 ;;
    *)
      out="$1"; shift ;;
  esac
done

cxx="${CXX_FUZZ:-clang++}"
# Objects are instrumented without libFuzzer's main(); the link adds it.
compile_flags=(-std=c++20 -g -O1 -fno-omit-frame-pointer -fsanitize=fuzzer-no-link,address,undefined
               -fno-sanitize-recover=undefined -Wall -Wextra -I"$root")
link_flags=(-fsanitize=fuzzer,address,undefined)

mkdir -p "$out/obj"
out="$(cd "$out" && pwd)"

# Object files are shared between targets; each is rebuilt when its source
# or any header it includes is newer (the compiler's dependency file says).
# A change of flags needs a fresh OUTDIR.
needs_build() {
  local object="$1" deps="$1.d" source="$2"
  [ -f "$object" ] && [ -f "$deps" ] || return 0
  [ "$source" -nt "$object" ] && return 0
  local dep
  for dep in $(sed -e 's/\\$//' -e 's/^[^:]*://' "$deps"); do
    [ -e "$dep" ] || return 0
    [ "$dep" -nt "$object" ] && return 0
  done
  return 1
}

compile() {
  local source="$1" object="$2"
  if needs_build "$object" "$root/$source"; then
    mkdir -p "$(dirname "$object")"
    echo "  compile $source"
    "$cxx" "${compile_flags[@]}" -MMD -MF "$object.d" -c "$root/$source" -o "$object"
  fi
}

targets=()
status=0
for target_source in "$here"/*Fuzzer.cpp; do
  [ -e "$target_source" ] || continue
  name="$(basename "$target_source" .cpp)"
  targets+=("$name")
  echo "== $name"
  sources=($(sed -n 's|^// fuzz-sources:||p' "$target_source"))
  objects=()
  for source in "fuzz/$name.cpp" "${sources[@]}"; do
    object="$out/obj/${source%.cpp}.o"
    compile "$source" "$object" || { status=1; continue 2; }
    objects+=("$object")
  done
  "$cxx" "${link_flags[@]}" "${objects[@]}" -o "$out/$name" || { status=1; continue; }
  echo "  built $out/$name"
done

if [ -n "$run_seconds" ]; then
  for name in "${targets[@]}"; do
    [ -x "$out/$name" ] || continue
    corpus="$out/corpus/$name"
    artifacts="$out/artifacts/$name"
    mkdir -p "$corpus" "$artifacts"
    seeds=()
    [ -d "$here/corpus/$name" ] && seeds+=("$here/corpus/$name")
    options=(-max_total_time="$run_seconds" -artifact_prefix="$artifacts/" -print_final_stats=1)
    [ -f "$here/$name.dict" ] && options+=(-dict="$here/$name.dict")
    echo "== run $name for ${run_seconds}s"
    if ! "$out/$name" "${options[@]}" "$corpus" "${seeds[@]}" >"$out/$name.log" 2>&1; then
      status=1
      echo "  FAILED: see $out/$name.log and $artifacts/"
      grep -E "ERROR|invariant|failed|changed" "$out/$name.log" | head -5 || true
    else
      grep -E "^stat::number_of_executed_units|^Done" "$out/$name.log" | sed 's/^/  /' || true
    fi
  done
fi

exit "$status"
