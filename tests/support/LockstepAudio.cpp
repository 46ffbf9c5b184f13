#include "tests/support/LockstepAudio.h"

#include "SceneCore/Sound/FloatWavWriter.h"

#include "SceneCore/Sound/SoftwareAudioEngine.h"

#include <cstring>
#include <fstream>
#include <stdexcept>

namespace hushmeadows::testing {

void writeFloatWav(const std::filesystem::path& file, int sampleRate, int channels, std::int64_t frames,
                   const std::function<float(std::int64_t, int)>& sample)
{
    auto writer = FloatWavWriter::create(file, sampleRate, channels);
    if (!writer)
        throw std::runtime_error(writer.error());
    std::vector<float> frame(static_cast<std::size_t>(channels));
    for (std::int64_t i = 0; i < frames; ++i) {
        for (int c = 0; c < channels; ++c)
            frame[static_cast<std::size_t>(c)] = sample(i, c);
        writer->append(frame.data(), 1);
    }
    if (auto finished = writer->finish(); !finished)
        throw std::runtime_error(finished.error());
}

AmbientAudioEngine::Services LockstepAudio::services(AudioFileOpener open, AmbientAudioEngine::BackgroundRunner background)
{
    if (!background)
        background = [](std::function<void()> work) { work(); };
    return AmbientAudioEngine::Services{
        .mainLoop = loop,
        .makeEngine = [this] { return std::make_unique<SoftwareAudioEngine>(loop, nullptr, sampleRate); },
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

StereoBlock LockstepAudio::render(AmbientAudioEngine& engine)
{
    auto rendered = engine.renderOffline(stepFrames, *scratch_);
    if (!rendered)
        throw std::runtime_error("offline rendering failed: " + rendered.error());
    StereoBlock block;
    block.left.assign(scratch_->channelData(0), scratch_->channelData(0) + stepFrames);
    block.right.assign(scratch_->channelData(1), scratch_->channelData(1) + stepFrames);
    return block;
}

StereoBlock LockstepAudio::renderStep(AmbientAudioEngine& engine)
{
    StereoBlock block = render(engine);
    loop.advance(step);
    return block;
}

StereoBlock LockstepAudio::renderSteps(AmbientAudioEngine& engine, int count)
{
    StereoBlock all;
    for (int i = 0; i < count; ++i) {
        StereoBlock block = renderStep(engine);
        all.left.insert(all.left.end(), block.left.begin(), block.left.end());
        all.right.insert(all.right.end(), block.right.begin(), block.right.end());
    }
    return all;
}

} // namespace hushmeadows::testing
