#include "Platforms/Linux/LinuxSaverAudio.h"

#include "Platforms/Linux/FFmpegAudioFile.h"
#include "Platforms/Linux/SDLAudioOutput.h"
#include "SceneCore/Sound/AudioMixer.h"
#include "SceneCore/Sound/StudioMusic.h"

#include <chrono>
#include <thread>

namespace hushmeadows {

LinuxSaverAudio::LinuxSaverAudio(RunLoop& mainLoop, const MediaProbe& media)
    : loading_(std::make_unique<ThreadSerialQueue>("app.hushmeadows.audio-loading"))
    , power_(std::make_unique<LinuxPowerEvents>(mainLoop))
{
    ThreadSerialQueue* loading = loading_.get();
    SaverAudio::Services services{
        .engine =
            AmbientAudioEngine::Services{
                .mainLoop = mainLoop,
                .makeOutput = [] { return std::make_shared<SDLAudioOutput>(); },
                .openFile = FFmpegAudioFile::open,
                .runInBackground = [loading](std::function<void()> work) { loading->async(std::move(work)); },
                .makeSerialQueue = [](const std::string& label) { return std::make_unique<ThreadSerialQueue>(label); },
                .sleep = [](double seconds) { std::this_thread::sleep_for(std::chrono::duration<double>(seconds)); },
                .sampleRate = AudioMixer::defaultSampleRate,
                .offlineFormat = std::nullopt,
                .entryPoints = {},
            },
        .powerEvents = *power_,
        .loadOverlay = [&media](const WorldPackage& world) { return StudioMusic::load(world, media); },
        .now = [] { return std::chrono::system_clock::now(); },
        .calendar = Calendar::current(),
    };
    arbiter_ = std::make_unique<SaverAudio>(std::move(services));
}

LinuxSaverAudio::~LinuxSaverAudio()
{
    // The arbiter's engine goes first; then no decode can report back to it.
    arbiter_.reset();
    loading_.reset();
    power_.reset();
}

} // namespace hushmeadows
