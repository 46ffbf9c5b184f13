#pragma once

#include "SceneCore/Runtime/MediaProbe.h"

#include <cstdio>
#include <string>
#include <vector>

namespace hushmeadows {

// `hushmeadows render-audio [WORLD] --seconds S --out FILE.wav [--fade-in
// SECONDS] [--phase day|night]`: renders the world's sound offline, through
// the same music choice, levels and engine the saver uses with the current
// settings, into a 48 kHz float32 stereo WAV. Time is virtual: fades and
// timers advance in step with the samples rendered, so the result is exact
// and takes no real time to wait for.
int runRenderAudioCommand(const std::vector<std::string>& arguments, const MediaProbe& media, std::FILE* out, std::FILE* err);

} // namespace hushmeadows
