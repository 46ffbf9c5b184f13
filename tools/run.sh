#!/usr/bin/env bash
# The main job on a fresh Debian 12 machine: install, build, and check the
# bundled worlds exactly as the saver loads them (media decoded too).
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/install-deps.sh
cmake --preset release -G Ninja
cmake --build build/release -j"$(nproc)"
program=build/release/Apps/hushmeadows/hushmeadows
"$program" check --media build/release/Apps/hushmeadows/Resources/Worlds "$@"
