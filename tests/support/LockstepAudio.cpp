#include "tests/support/LockstepAudio.h"

#include "SceneCore/Runtime/ImmediateSerialQueue.h"

#include <stdexcept>

namespace hushmeadows::testing {

AmbientAudioEngine::Services LockstepAudio::services(AudioFileOpener open, AmbientAudioEngine::BackgroundRunner background)
{
    if (!background)
        background = [](std::function<void()> work) { work(); };
    return AmbientAudioEngine::Services{
        .mainLoop = loop,
        .makeOutput = {},
        .openFile = std::move(open),
        .runInBackground = std::move(background),
        .makeSerialQueue = [](const std::string& label) { return std::make_unique<ImmediateSerialQueue>(label); },
        .sleep =
            [this](double seconds) {
                sleeps.push_back(seconds);
                levelsWhileSleeping.push_back(watched_ ? watched_->masterGain() : -1.0f);
            },
        .sampleRate = sampleRate,
        .offlineFormat = AudioFormat{sampleRate, 2},
        .entryPoints = {},
    };
}

StereoSignal LockstepAudio::renderSteps(AmbientAudioEngine& engine, int count, bool advance)
{
    StereoSignal all;
    for (int i = 0; i < count; ++i) {
        if (auto rendered = engine.renderOffline(stepFrames, *scratch_); !rendered)
            throw std::runtime_error("offline rendering failed: " + rendered.error());
        all.append(*scratch_);
        if (advance)
            loop.advance(step);
    }
    return all;
}

} // namespace hushmeadows::testing
