#pragma once

#include "tools/worldgen/StereoLoop.h"

namespace hushmeadows::worldgen {

// A slow loop of six chords with bell-like pentatonic notes above them. Every
// note is written modulo the loop length, so a note struck near the end rings
// on into the start and the loop has no seam.
class MusicSynth {
public:
    static constexpr int beatsPerMinute = 60;
    static constexpr int beatsPerChord = 8;
    static constexpr int chordCount = 6;

    static constexpr std::int64_t loopFrames()
    {
        return static_cast<std::int64_t>(chordCount) * beatsPerChord * 60 * sampleRate / beatsPerMinute;
    }

    static StereoLoop render();
};

} // namespace hushmeadows::worldgen
