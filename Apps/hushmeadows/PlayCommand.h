#pragma once

#include "SceneCore/Runtime/MediaProbe.h"

#include <cstdio>
#include <string>
#include <vector>

namespace hushmeadows {

// `hushmeadows play [WORLD] [--window WIDTHxHEIGHT] [--window-id ID]
// [--poster-only] [--framing fill|wholeScene] [--no-pixel-perfect]`: shows a
// world's picture in a window (full screen without --window) until the window
// is closed, Escape is pressed, or SIGTERM or SIGINT arrives; then returns 0.
// It is the saver's view in its preview role, and so silent.
// WORLD is a package folder (…/name.hushmeadow) or a world id from the
// library; without it, the world the saver would choose. Returns 1 when the
// world or the window cannot be had, 2 for a usage error.
int runPlayCommand(const std::vector<std::string>& arguments, const MediaProbe& media, std::FILE* out, std::FILE* err);

} // namespace hushmeadows
