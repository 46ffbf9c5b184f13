#!/usr/bin/env bash
# Checks the macOS host where no Mac builds it, on every change:
#  1. names: the Info.plist and class-name header the bundle's build makes
#     (Platforms/Apple/BundleNames.cmake, run here as a script) name the
#     principal class, and every Objective-C class the bundle defines carries
#     our prefix and the bundle's version;
#  2. workflow: every step of .github/workflows/macos.yml has a time limit;
#  3. parse: every .mm and .cpp of Platforms/Apple and the bundle's harness
#     parse with clang 19 as Objective-C++ with ARC, C++23 and libc++, against
#     the hand-written declarations in tools/apple-declarations, with the
#     declarations of both architectures (BOOL differs).
# Each check first meets a planted error and must reject it, so a check that
# accepts everything cannot pass.
#
#     tools/check-macos-host.sh
set -euo pipefail
cd "$(dirname "$0")/.."

compiler=${CLANGXX:-clang++-19}
command -v "$compiler" >/dev/null || { echo "macOS host check: $compiler is missing (tools/install-deps.sh installs it)" >&2; exit 1; }

out=build/check-macos-host
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The version and the oldest macOS, as the top-level CMakeLists sets them.
version=$(sed -n 's/^project(Hushmeadows VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
target=$(sed -n 's/^set(CMAKE_OSX_DEPLOYMENT_TARGET "\([0-9.]*\)".*/\1/p' CMakeLists.txt)
[ -n "$version" ] && [ -n "$target" ] || { echo "macOS host check: no version or deployment target in CMakeLists.txt" >&2; exit 1; }
cmake -DVERSION="$version" -DDEPLOYMENT_TARGET="$target" -DOUTPUT_DIR="$out" -P Platforms/Apple/BundleNames.cmake

flags=(-x objective-c++ -fobjc-arc -fblocks -fobjc-runtime=macosx-14.0 -std=c++23 -stdlib=libc++
       -Wall -Wextra -Werror -isystem tools/apple-declarations -I . -I "$out")

# --- 1. names ---------------------------------------------------------------
suffix="_${version//./_}"
principal=$(grep -A1 '<key>NSPrincipalClass</key>' "$out/Info.plist" | sed -n 's:.*<string>\(.*\)</string>.*:\1:p')

# Fails unless every class the given sources define is HMW…<suffix>, and the
# principal class is one of them, a ScreenSaverView.
check_names() {
  local defined="" file source classes problems=0
  for file in "$@"; do
    source=$("$compiler" "${flags[@]}" -E -P "$file")
    # Class definitions only: a category's @implementation names a class in parentheses after it.
    classes=$(printf '%s\n' "$source" | sed -n 's/^[[:space:]]*@implementation[[:space:]]\{1,\}\([A-Za-z_][A-Za-z0-9_]*\)[[:space:]]*\({.*\)\{0,1\}$/\1/p')
    for class in $classes; do
      if [[ "$class" != HMW* || "$class" != *"$suffix" ]]; then
        echo "names: $file defines $class, which lacks the prefix HMW or the version suffix $suffix" >&2
        problems=1
      fi
      defined+=" $class"
    done
    if grep -q "@interface[[:space:]]\{1,\}$principal[[:space:]]*:[[:space:]]*ScreenSaverView" <<< "$source"; then
      principal_is_view=1
    fi
  done
  if [[ " $defined " != *" $principal "* || -z "${principal_is_view:-}" ]]; then
    echo "names: the Info.plist's principal class $principal is not a ScreenSaverView the bundle defines (it defines:$defined)" >&2
    problems=1
  fi
  unset principal_is_view
  return "$problems"
}

if [[ "$principal" != HMW*"$suffix" ]]; then
  echo "names: the principal class \"$principal\" does not carry HMW and $suffix" >&2
  exit 1
fi
bundle_sources=(Platforms/Apple/*.mm)
planted="$work/Planted.mm"
printf '#import <Foundation/Foundation.h>\n@interface HMWLeftover : NSObject\n@end\n@implementation HMWLeftover\n@end\n' > "$planted"
if check_names "${bundle_sources[@]}" "$planted" 2>/dev/null; then
  echo "names: a planted class without the version was not caught; the check proves nothing" >&2
  exit 1
fi
check_names "${bundle_sources[@]}"
echo "names: the Info.plist's principal class $principal and every class of the bundle carry HMW and $suffix"

# --- 2. the workflow: every step has a time limit -------------------------
# Steps are the "      - " items of the job's steps; each needs its own
# "        timeout-minutes:" before the next begins.
untimed_steps() {
  awk '
    /^    steps:/ { in_steps = 1; next }
    in_steps && /^      - / { if (step != "" && !timed) print step; step = $0; timed = 0; next }
    in_steps && /^        timeout-minutes:/ { timed = 1 }
    END { if (step != "" && !timed) print step }' "$1"
}
sed '/^        timeout-minutes:/d' .github/workflows/macos.yml > "$work/untimed.yml"
if [ -z "$(untimed_steps "$work/untimed.yml")" ]; then
  echo "workflow: steps without a time limit were not caught; the check proves nothing" >&2
  exit 1
fi
untimed=$(untimed_steps .github/workflows/macos.yml)
if [ -n "$untimed" ]; then
  echo "workflow: steps of .github/workflows/macos.yml without timeout-minutes:" >&2
  echo "$untimed" >&2
  exit 1
fi
echo "workflow: every step of .github/workflows/macos.yml has a time limit"

# --- 3. parse ---------------------------------------------------------------
parse() { "$compiler" -fsyntax-only "${flags[@]}" "$@"; }
planted="$work/PlantedParse.mm"
{ cat Platforms/Apple/ApplePaths.mm; echo 'static NSString* planted = 42;'; } > "$planted"
if parse -I Platforms/Apple "$planted" 2>/dev/null; then
  echo "parse: a planted error was not caught; the check proves nothing" >&2
  exit 1
fi
files=(Platforms/Apple/*.mm Platforms/Apple/*.cpp tests/Apple/SaverHarness.mm)
# One parse per file and architecture, as many at once as there are cores.
n=0
for file in "${files[@]}"; do
  for arch in arm64 intel; do
    extra=()
    [ "$arch" = intel ] && extra=(-DHUSHMEADOWS_DECLARE_INTEL=1)
    n=$((n + 1))
    ( parse "${extra[@]}" "$file" > "$work/parse.$n.log" 2>&1 \
        || { echo "parse: $file ($arch) FAILED" >> "$work/parse.$n.log"; touch "$work/failed"; } ) &
    while [ "$(jobs -rp | wc -l)" -ge "$(nproc)" ]; do wait -n || true; done
  done
done
wait
cat "$work"/parse.*.log >&2
if [ -e "$work/failed" ]; then
  exit 1
fi
echo "parse: ${#files[@]} files of the macOS host parse (arm64 and Intel declarations); the planted errors were caught"
