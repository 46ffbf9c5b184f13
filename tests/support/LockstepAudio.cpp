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

StereoSignal LockstepAudio::render(AmbientAudioEngine& engine)
{
    if (auto rendered = engine.renderOffline(stepFrames, *scratch_); !rendered)
        throw std::runtime_error("offline rendering failed: " + rendered.error());
    StereoSignal signal;
    signal.append(*scratch_);
    return signal;
}

StereoSignal LockstepAudio::renderSteps(AmbientAudioEngine& engine, int count)
{
    StereoSignal all;
    for (int i = 0; i < count; ++i) {
        StereoSignal one = render(engine);
        all.left.insert(all.left.end(), one.left.begin(), one.left.end());
        all.right.insert(all.right.end(), one.right.begin(), one.right.end());
        loop.advance(step);
    }
    return all;
}

} // namespace hushmeadows::testing
