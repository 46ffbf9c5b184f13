#pragma once

#include "HushmeadowsSaver/SaverAudio.h"
#include "HushmeadowsSaver/SystemPowerEvents.h"
#include "Platforms/Apple/AppleServices.h"
#include "SceneCore/Runtime/MediaProbe.h"
#include "SceneCore/Runtime/RunLoop.h"

#include <memory>

namespace hushmeadows {

// The saver's sound on macOS: the portable mixer pulled by AVAudioEngine,
// files read through Extended Audio File Services, decoding on a serial
// queue, long music on streamer queues, and the workspace's sleep
// notifications cutting the sound.
class AppleSaverAudio {
public:
    AppleSaverAudio(RunLoop& mainLoop, const MediaProbe& media, SystemPowerEvents& powerEvents);
    ~AppleSaverAudio();
    AppleSaverAudio(const AppleSaverAudio&) = delete;
    AppleSaverAudio& operator=(const AppleSaverAudio&) = delete;

    SaverAudio& arbiter() { return *arbiter_; }

private:
    std::unique_ptr<AppleSerialQueue> loading_;
    std::unique_ptr<SaverAudio> arbiter_;
};

} // namespace hushmeadows
