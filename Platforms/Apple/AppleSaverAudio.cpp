#include "Platforms/Apple/AppleSaverAudio.h"

#include "Platforms/Apple/AppleAudioFile.h"
#include "Platforms/Apple/AppleAudioOutput.h"
#include "SceneCore/Sound/AudioMixer.h"
#include "SceneCore/Sound/StudioMusic.h"

#include <chrono>
#include <thread>

namespace hushmeadows {

AppleSaverAudio::AppleSaverAudio(RunLoop& mainLoop, const MediaProbe& media, SystemPowerEvents& powerEvents)
    : loading_(std::make_unique<AppleSerialQueue>("app.hushmeadows.audio-loading"))
{
    AppleSerialQueue* loading = loading_.get();
    arbiter_ = std::make_unique<SaverAudio>(SaverAudio::Services{
        .engine =
            AmbientAudioEngine::Services{
                .mainLoop = mainLoop,
                .makeOutput = []() -> std::shared_ptr<AudioOutput> { return std::make_shared<AppleAudioOutput>(); },
                .openFile = &AppleAudioFile::open,
                .runInBackground = [loading](std::function<void()> work) { loading->async(std::move(work)); },
                // A streamer's work uses the streamer itself, so its queue
                // finishes the read under way when the streamer goes: one
                // buffer of a few seconds from a file already open.
                .makeSerialQueue = [](const std::string& label) -> std::unique_ptr<SerialQueue> {
                    return std::make_unique<AppleSerialQueue>(label, AppleSerialQueue::Teardown::drain);
                },
                .sleep = [](double seconds) { std::this_thread::sleep_for(std::chrono::duration<double>(seconds)); },
                .sampleRate = AudioMixer::defaultSampleRate,
                .offlineFormat = std::nullopt,
                .entryPoints = {},
            },
        .powerEvents = powerEvents,
        .loadOverlay = [&media](const WorldPackage& world) { return StudioMusic::load(world, media); },
        .now = [] { return std::chrono::system_clock::now(); },
        .calendar = Calendar::current(),
    });
}

AppleSaverAudio::~AppleSaverAudio()
{
    // The arbiter's engine goes first; a load still under way finds it gone
    // (it reports through the main loop, holding the engine weakly), and
    // nothing here waits for that load.
    arbiter_.reset();
    loading_.reset();
}

} // namespace hushmeadows
