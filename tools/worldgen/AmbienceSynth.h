#pragma once

#include "tools/worldgen/MeadowScene.h"
#include "tools/worldgen/StereoLoop.h"

namespace hushmeadows::worldgen {

// The meadow's ambience: soft wind in slow gusts, with birds by day and
// crickets by night. Gusts repeat exactly over the loop and every call wraps
// around its end, so the loop has no seam.
class AmbienceSynth {
public:
    static StereoLoop render(TimeOfDay timeOfDay, std::int64_t frames);

private:
    static StereoLoop wind(TimeOfDay timeOfDay, std::int64_t frames);
    static StereoLoop birds(std::int64_t frames);
    static StereoLoop crickets(std::int64_t frames);
};

} // namespace hushmeadows::worldgen
