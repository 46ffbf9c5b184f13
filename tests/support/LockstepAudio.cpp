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

WorldPackage soundWorld(const std::filesystem::path& root, const std::string& id, std::optional<std::string> music,
                        std::optional<std::string> ambience, double musicLevel, double ambienceLevel)
{
    WorldManifest manifest;
    manifest.id = id;
    manifest.name = id;
    manifest.visual.file = "loop.mp4";
    if (music)
        manifest.audio.music = WorldManifest::Track{*music, musicLevel, std::nullopt};
    if (ambience)
        manifest.audio.ambience = WorldManifest::Track{*ambience, ambienceLevel, std::nullopt};
    return WorldPackage(root, manifest, {});
}

std::filesystem::path writeConstant(const std::filesystem::path& file, float left, float right)
{
    writeFloatWav(file, static_cast<int>(LockstepAudio::sampleRate), 2, 4800, [=](std::int64_t, int c) { return c == 0 ? left : right; });
    return file;
}

} // namespace hushmeadows::testing
