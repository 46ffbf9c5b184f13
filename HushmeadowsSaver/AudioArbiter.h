#pragma once

#include "SceneCore/Settings/HushmeadowsSettings.h"
#include "SceneCore/Worlds/WorldPackage.h"

#include <string>

namespace hushmeadows {

// What the screen saver view asks of the one process-wide sound: a claim per
// view that may sound, released when the view stops.
class AudioArbiter {
public:
    struct Diagnostics {
        int clients = 0;
        std::string state = "idle";
        bool ownsAudio = false;
        double musicVolume = 0;
        double ambienceVolume = 0;
        int activeEngines = 0;
    };

    virtual ~AudioArbiter() = default;
    virtual void acquire(const void* client, const WorldPackage& world, const HushmeadowsSettings& settings) = 0;
    virtual void release(const void* client, bool immediately) = 0;
    virtual Diagnostics diagnostics(const void* client) const = 0;
};

} // namespace hushmeadows
