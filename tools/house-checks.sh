#!/usr/bin/env bash
# The portable core reaches the platform only through ports.
set -euo pipefail
cd "$(dirname "$0")/.."
hits=$(grep -rnE '^[[:space:]]*#[[:space:]]*(include|import)[[:space:]]*[<"](SDL|libav|libsw|AppKit|AVFoundation|Cocoa|CoreAudio|CoreVideo|QuartzCore|ScreenSaver|Foundation/|ImageIO|CoreGraphics|os/log|X11/|pulse/|systemd/|unistd\.h|pthread\.h|dlfcn\.h|pwd\.h)' SceneCore HushmeadowsSaver 2>/dev/null || true)
if [ -n "$hits" ]; then
  echo "Platform headers in the portable core:"
  echo "$hits"
  exit 1
fi
echo "house checks: clean"
