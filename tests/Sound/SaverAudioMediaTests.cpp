#include "HushmeadowsSaver/SaverAudio.h"

#include "Platforms/Linux/FFmpegAudioFile.h"
#include "tests/support/FixtureKit.h"
#include "tests/support/LockstepAudio.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace hushmeadows {
namespace {

namespace fs = std::filesystem;
using testing::LockstepAudio;
using testing::StereoSignal;

// Sleep signals, raised by the test through the handlers.
struct FiredPowerEvents final : SystemPowerEvents {
    void observe(Handler handler) override { handlers.push_back(std::move(handler)); }
    std::vector<Handler> handlers;
};

class SaverAudioTest : public ::testing::Test {
protected:
    SaverAudioTest()
    {
        // Music on the left, ambience on the right, each constant, so that a
        // sample says the level of its layer.
        testing::writeConstant(dir / "music.wav", 0.5f, 0.0f);
        testing::writeConstant(dir / "ambience.wav", 0.0f, 0.5f);
        world.emplace(testing::soundWorld(dir.path(), "meadow", "music.wav", "ambience.wav", 0.6, 0.9));

        saver = std::make_unique<SaverAudio>(SaverAudio::Services{
            .engine = sound.services(&FFmpegAudioFile::open),
            .powerEvents = power,
            .loadOverlay = {},
            .now = [] { return std::chrono::system_clock::time_point(std::chrono::hours(12)); },
            .calendar = Calendar::fixedOffset(std::chrono::seconds(0)),
        });
    }

    AmbientAudioEngine& engine() { return saver->engine(); }
    StereoSignal renderSteps(int count) { return sound.renderSteps(engine(), count); }
    void acquire(const void* client)
    {
        saver->acquire(client, *world, settings);
        sound.loop.runPending();
    }
    std::vector<std::string> saverLines() const { return logs.lines("saver"); }

    testing::TempDir dir;
    testing::LogCapture logs;
    LockstepAudio sound;
    FiredPowerEvents power;
    std::optional<WorldPackage> world;
    HushmeadowsSettings settings;
    std::unique_ptr<SaverAudio> saver;
    const int first = 0;
    const int second = 0;
};

TEST_F(SaverAudioTest, TwoClaimsShareOneSoundAndTheLastReleaseFadesOut)
{
    acquire(&first);
    EXPECT_EQ(engine().state(), AmbientAudioEngine::State::playing);
    EXPECT_EQ(saverLines(), std::vector<std::string>{"audio acquired music=0.600000 ambience=0.900000 style=classic"});
    renderSteps(240);
    EXPECT_EQ(engine().masterGain(), 1.0f); // a 4 s fade-in
    int engines = AmbientAudioEngine::activeEngineCount();

    acquire(&second);
    EXPECT_EQ(AmbientAudioEngine::activeEngineCount(), engines);
    auto diagnostics = saver->diagnostics(&first);
    EXPECT_EQ(std::tuple(diagnostics.clients, diagnostics.state, diagnostics.ownsAudio), std::tuple(2, "playing", true));

    saver->release(&first, false);
    StereoSignal stillPlaying = renderSteps(60);
    EXPECT_EQ(engine().state(), AmbientAudioEngine::State::playing);
    EXPECT_FLOAT_EQ(stillPlaying.left.back(), 0.5f * 0.6f);
    EXPECT_FLOAT_EQ(stillPlaying.right.back(), 0.5f * 0.9f);

    saver->release(&second, false);
    EXPECT_EQ(saverLines().back(), "audio released immediately=false");
    renderSteps(47);
    EXPECT_EQ(engine().state(), AmbientAudioEngine::State::stopping) << "a 0.8 s fade-out";
    renderSteps(1 + AmbientAudioEngine::fadeSettleTicks);
    EXPECT_EQ(engine().state(), AmbientAudioEngine::State::idle);
    diagnostics = saver->diagnostics(&second);
    EXPECT_EQ(std::tuple(diagnostics.clients, diagnostics.state, diagnostics.ownsAudio, diagnostics.activeEngines),
              std::tuple(0, "idle", false, engines - 1));
}

// A stranger's release does nothing; an immediate release of the last claim,
// or sleep whatever the claims, cuts the sound at once.
TEST_F(SaverAudioTest, ImmediateReleasesAndSleepCutAtOnceAndAStrangersReleaseDoesNothing)
{
    saver->release(&second, true);
    EXPECT_TRUE(logs.lines().empty());
    acquire(&first);
    renderSteps(10);
    saver->release(&second, false);
    EXPECT_EQ(engine().state(), AmbientAudioEngine::State::playing);
    saver->release(&first, true);
    EXPECT_EQ(engine().state(), AmbientAudioEngine::State::idle);
    EXPECT_TRUE(renderSteps(1).isSilent());
    EXPECT_EQ(saverLines(), (std::vector<std::string>{"audio acquired music=0.600000 ambience=0.900000 style=classic",
                                                      "audio released immediately=true"}));

    acquire(&first);
    acquire(&second);
    EXPECT_EQ(power.handlers.size(), 1u); // observed once, from the first claim on
    renderSteps(30);
    power.handlers.front()("org.freedesktop.login1.Manager.PrepareForSleep");
    EXPECT_EQ(engine().state(), AmbientAudioEngine::State::idle);
    EXPECT_EQ(saverLines().back(), "audio stopped: org.freedesktop.login1.Manager.PrepareForSleep");
    EXPECT_EQ(saver->diagnostics(&first).clients, 2);
    EXPECT_TRUE(renderSteps(1).isSilent());
}

TEST_F(SaverAudioTest, AClaimWhileMutedUnmutesAtTheWorldsOwnLevels)
{
    settings.musicVolume = 0.9;
    settings.ambienceVolume = 0.8;
    settings.setMusicLevel(0.3, "meadow");
    settings.setAmbienceLevel(0.4, "meadow");
    acquire(&first);
    renderSteps(240);
    engine().setMuted(true, 0);
    EXPECT_FALSE(engine().isEngineRunning());

    acquire(&second);
    EXPECT_FALSE(engine().isMuted());
    EXPECT_TRUE(engine().isEngineRunning());
    EXPECT_EQ(saverLines().back(), "audio acquired music=0.300000 ambience=0.400000 style=classic");
    renderSteps(42); // unmuting fades in over 0.7 s
    StereoSignal block = sound.render(engine());
    EXPECT_FLOAT_EQ(block.left.back(), 0.5f * 0.3f);
    EXPECT_FLOAT_EQ(block.right.back(), 0.5f * 0.4f);
}

} // namespace
} // namespace hushmeadows
