#include "Platforms/Linux/SDLAudioOutput.h"
#include "Platforms/Linux/ThreadRunLoop.h"
#include "SceneCore/Sound/AudioMixer.h"
#include "tests/support/FixtureKit.h"
#include "tests/support/OfflineAudio.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <algorithm>
#include <fstream>
#include <iterator>

namespace hushmeadows {
namespace {

namespace kit = hushmeadows::testing;

// SDL's `disk` driver writes exactly what the callback rendered to a file,
// at the pace of a real device.
TEST(SDLAudioOutput, TheDeviceReceivesTheMixSampleForSample)
{
    kit::TempDir dir;
    const auto recording = dir / "device.raw";
    ::setenv("SDL_AUDIODRIVER", "disk", 1);
    ::setenv("SDL_DISKAUDIOFILE", recording.c_str(), 1);
    ThreadRunLoop loop;
    auto output = std::make_shared<SDLAudioOutput>();
    AudioMixer engine(loop, output);
    auto node = engine.addPlayer();
    auto buffer = kit::makeBuffer(
        12'000, [](std::uint32_t i) { return static_cast<float>(i % 1000 + 1) / 1024.0f; },
        [](std::uint32_t i) { return -static_cast<float>(i % 700 + 1) / 1024.0f; });
    bool played = false;
    node->scheduleBuffer(buffer, [&] { played = true; });
    node->setVolume(0.5f);
    node->play();
    auto started = engine.start();
    ASSERT_TRUE(started) << started.error();
    EXPECT_EQ(output->driverName(), "disk");
    ASSERT_TRUE(loop.runUntil([&] { return played; }, 20.0)) << "the completion comes back on the main loop";
    engine.stop();
    EXPECT_FALSE(engine.isRunning());

    std::ifstream in(recording, std::ios::binary);
    std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::vector<float> samples(bytes.size() / sizeof(float));
    std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(float));
    // SDL may write silence of its own while the device opens paused; after the buffer, silence.
    auto start = static_cast<std::size_t>(std::ranges::find_if(samples, [](float s) { return s != 0.0f; }) - samples.begin());
    ASSERT_EQ(start % 2, 0u);
    ASSERT_GE(samples.size() - start, 12'000u * 2);
    for (std::size_t i = 0; i < samples.size() - start; ++i) {
        float expected = i < 24'000 ? buffer->channelData(static_cast<int>(i % 2))[i / 2] * 0.5f : 0.0f;
        ASSERT_EQ(samples[start + i], expected) << "sample " << i;
    }
    ASSERT_TRUE(engine.start()) << "starting again opens the device again";
    ::unsetenv("SDL_AUDIODRIVER");
    ::unsetenv("SDL_DISKAUDIOFILE");
}

} // namespace
} // namespace hushmeadows
