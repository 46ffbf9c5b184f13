#pragma once

#include "HushmeadowsSaver/SaverAudio.h"
#include "Platforms/Linux/LinuxPowerEvents.h"
#include "Platforms/Linux/ThreadSerialQueue.h"
#include "SceneCore/Runtime/MediaProbe.h"
#include "SceneCore/Runtime/RunLoop.h"

#include <memory>

namespace hushmeadows {

// The saver's sound on Linux: the portable mixer pulled by an SDL2 audio
// device, files read through FFmpeg, decoding on a worker thread, long music
// on streamer threads, and logind/DPMS cutting the sound.
class LinuxSaverAudio {
public:
    LinuxSaverAudio(RunLoop& mainLoop, const MediaProbe& media);
    ~LinuxSaverAudio();

    SaverAudio& arbiter() { return *arbiter_; }

private:
    std::unique_ptr<ThreadSerialQueue> loading_;
    std::unique_ptr<LinuxPowerEvents> power_;
    std::unique_ptr<SaverAudio> arbiter_;
};

} // namespace hushmeadows
