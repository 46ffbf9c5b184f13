#include "Platforms/Linux/SDLAudioOutput.h"
#include "Platforms/Linux/ThreadRunLoop.h"
#include "SceneCore/Sound/AudioMixer.h"
#include "tests/support/FixtureKit.h"
#include "tests/support/OfflineAudio.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
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
    {
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
        EXPECT_TRUE(engine.isRunning());
        EXPECT_EQ(output->driverName(), "disk");
        ASSERT_TRUE(loop.runUntil([&] { return played; }, 20.0)) << "the completion comes back on the main loop";
        engine.stop();
        EXPECT_FALSE(engine.isRunning());

        std::ifstream in(recording, std::ios::binary);
        std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        std::vector<float> samples(bytes.size() / sizeof(float));
        std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(float));
        // SDL may write silence of its own while the device opens paused.
        std::size_t start = 0;
        while (start < samples.size() && samples[start] == 0.0f)
            ++start;
        ASSERT_EQ(start % 2, 0u);
        ASSERT_GE(samples.size() - start, 12'000u * 2);
        for (std::uint32_t i = 0; i < 12'000; ++i) {
            ASSERT_EQ(samples[start + 2 * i], buffer->channelData(0)[i] * 0.5f) << "frame " << i;
            ASSERT_EQ(samples[start + 2 * i + 1], buffer->channelData(1)[i] * 0.5f) << "frame " << i;
        }
        for (std::size_t i = start + 2 * 12'000; i < samples.size(); ++i)
            ASSERT_EQ(samples[i], 0.0f) << "after the buffer, silence; sample " << i;

        // Starting again opens the device again.
        ASSERT_TRUE(engine.start());
        engine.pause();
        EXPECT_FALSE(engine.isRunning());
    }
    ::unsetenv("SDL_AUDIODRIVER");
    ::unsetenv("SDL_DISKAUDIOFILE");
}

TEST(SDLAudioOutput, AMissingDriverIsAReadableStartFailure)
{
    ::setenv("SDL_AUDIODRIVER", "no-such-driver", 1);
    ThreadRunLoop loop;
    AudioMixer engine(loop, std::make_shared<SDLAudioOutput>());
    auto started = engine.start();
    ::unsetenv("SDL_AUDIODRIVER");
    ASSERT_FALSE(started);
    EXPECT_FALSE(started.error().empty());
    EXPECT_FALSE(engine.isRunning());
}

} // namespace
} // namespace hushmeadows
