#include "SceneCore/Runtime/ManualRunLoop.h"
#include "SceneCore/Sound/AudioMixer.h"
#include "tests/support/OfflineAudio.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace hushmeadows {
namespace {

using testing::makeBuffer;

// Players added, fed, turned and removed on this thread while another renders:
// every completion runs once and (under the sanitizers) nothing races or leaks.
TEST(AudioMixer, RendersOnItsOwnThreadWhileTheMainThreadChangesPlayers)
{
    ManualRunLoop loop;
    auto output = std::make_shared<testing::ManualOutput>();
    AudioMixer mixer(loop, output);
    ASSERT_TRUE(mixer.start());
    std::atomic<bool> quit{false};
    std::atomic<int> quanta{0};
    std::thread device([&] {
        while (!quit.load()) {
            output->pull(512);
            quanta.fetch_add(1);
        }
    });
    int scheduled = 0, completed = 0;
    std::vector<std::shared_ptr<AudioPlayer>> players;
    for (int round = 0; round < 300; ++round) {
        if (round % 40 == 0)
            players.push_back(mixer.addPlayer());
        auto& player = players[static_cast<std::size_t>(round) % players.size()];
        player->scheduleBuffer(makeBuffer(256, [round](std::uint32_t i) { return static_cast<float>(round) + static_cast<float>(i) / 256; }),
                               [&] { ++completed; });
        ++scheduled;
        player->play();
        player->setVolume(static_cast<float>(round % 4) * 0.25f);
        mixer.setOutputVolume(round % 2 ? 1.0f : 0.5f);
        if (round % 60 == 59) {
            mixer.removePlayer(players.front());
            players.erase(players.begin());
        }
        loop.advance(AudioMixer::drainInterval);
    }
    while (quanta.load() < 50)
        std::this_thread::yield();
    mixer.stopAllPlayers();
    quit.store(true);
    device.join();
    loop.advance(1);
    EXPECT_EQ(completed, scheduled);
}

} // namespace
} // namespace hushmeadows
