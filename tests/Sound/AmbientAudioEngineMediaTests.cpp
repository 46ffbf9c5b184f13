#include "SceneCore/Sound/AmbientAudioEngine.h"

#include "Platforms/Linux/FFmpegAudioFile.h"
#include "tests/support/FakeAudioFile.h"
#include "tests/support/FixtureKit.h"
#include "tests/support/LockstepAudio.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ManualSerialQueue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace hushmeadows {
namespace {

namespace fs = std::filesystem;
using testing::LockstepAudio;
using testing::StereoSignal;

using State = AmbientAudioEngine::State;

float smoothstep(double t) { return static_cast<float>(t * t * (3 - 2 * t)); }
// The angle of the equal-power law at a crossfade's progress.
float crossfadeAngle(double progress) { return smoothstep(progress) * (std::numbers::pi_v<float> / 2); }

class AmbientAudioEngineTest : public ::testing::Test {
protected:
    long logged(std::string_view text) const
    {
        return std::ranges::count_if(logs.lines("audio"), [&](const std::string& line) { return line.find(text) != std::string::npos; });
    }
    fs::path constant(const std::string& name, float left, float right) { return testing::writeConstant(dir / name, left, right); }
    // A ramp on the left channel, (i + 1) / frames at frame i: every frame tells where it is.
    fs::path ramp(const std::string& name, std::int64_t frames)
    {
        fs::path file = dir / name;
        testing::writeFloatWav(file, 48000, 2, frames, [=](std::int64_t i, int c) {
            return c == 0 ? static_cast<float>(i + 1) / static_cast<float>(frames) : 0.0f;
        });
        return file;
    }
    AmbientAudioEngine& make(AmbientAudioEngine::Services services)
    {
        engine = std::make_unique<AmbientAudioEngine>(std::move(services));
        sound.watch(engine.get());
        return *engine;
    }
    AmbientAudioEngine& make() { return make(sound.services(&FFmpegAudioFile::open)); }
    // An engine playing through an output the test pulls itself.
    testing::ManualOutput& onManualOutput()
    {
        auto output = std::make_shared<testing::ManualOutput>();
        auto services = sound.services(&FFmpegAudioFile::open);
        services.offlineFormat.reset();
        services.makeOutput = [output] { return output; };
        make(std::move(services));
        return *output;
    }
    // Decoding waits on `background` until the test runs it.
    AmbientAudioEngine::Services queued(AudioFileOpener open = &FFmpegAudioFile::open)
    {
        return sound.services(std::move(open), [this](std::function<void()> work) { background.async(std::move(work)); });
    }
    // On a steady level no two neighbours differ by more than the steepest
    // slope of the fade's curve allows over its length, so no step is heard.
    static void expectSmooth(const std::vector<float>& heard, double steepest, double fade)
    {
        double bound = steepest / (fade * LockstepAudio::sampleRate) * 1.001;
        for (std::size_t j = 1; j < heard.size(); ++j)
            ASSERT_LE(std::abs(heard[j] - heard[j - 1]), bound) << "frame " << j << " of a " << fade << " s fade";
    }
    void decodeAndApply()
    {
        background.runAll();
        sound.loop.runPending();
    }
    // Starts and lets the decoding come back to the main loop.
    void startAndLoad(const WorldPackage& world, std::optional<fs::path> music, double fadeIn)
    {
        engine->start(world, music, fadeIn);
        sound.loop.runPending();
    }

    testing::TempDir dir;
    testing::LogCapture logs;
    LockstepAudio sound;
    testing::ManualSerialQueue background{"decoding"};
    std::unique_ptr<AmbientAudioEngine> engine;
};

// Every frame of each layer tells where it is: the layers loop without a gap
// at their levels, start over when the output device changes, and when the
// output is lost the sound is torn down and started again after 0.5, 1, 2,
// ... up to every 10 s, one logged failure each, until it plays, fading in.
TEST_F(AmbientAudioEngineTest, BufferedLayersLoopWithoutAGapAndComeBackFadingInWhenALostOutputReturns)
{
    auto& output = onManualOutput();
    ramp("music.wav", 1000);
    testing::writeFloatWav(dir / "ambience.wav", 48000, 2, 700,
                           [](std::int64_t i, int c) { return c == 1 ? -static_cast<float>(i + 1) / 700.0f : 0.0f; });
    engine->setMusicVolume(0.5f);
    engine->setAmbienceVolume(0.25f);
    startAndLoad(testing::soundWorld(dir.path(), "meadow", "music.wav", "ambience.wav"), dir / "music.wav", 1.0);
    EXPECT_TRUE(logged("Sound started: meadow"));
    auto music = [](std::size_t j) { return static_cast<float>(j % 1000 + 1) / 1000.0f * 0.5f; };
    auto ambience = [](std::size_t j) { return -static_cast<float>(j % 700 + 1) / 700.0f * 0.25f; };
    auto expectLooping = [&](std::size_t frames) {
        auto heard = output.pull(static_cast<int>(frames));
        for (std::size_t j = 0; j < frames; ++j) {
            ASSERT_EQ(heard[2 * j], music(j)) << "frame " << j;
            ASSERT_EQ(heard[2 * j + 1], ambience(j)) << "frame " << j;
        }
    };
    sound.loop.advance(1.1); // the fade-in is over; nothing plays until pulled
    expectLooping(3200);     // across the music's loop point three times and the ambience's four times

    output.changed(); // the device went away and another one is there
    sound.loop.runPending();
    EXPECT_TRUE(logged("Audio configuration changed; restarting engine"));
    sound.loop.advance(1.1);
    expectLooping(1200);

    output.refusal = "Could not connect to the sound server";
    auto failures = [&] { return logged("Audio engine restart failed: ") + logged("Audio engine failed to start: "); };
    output.changed();
    sound.loop.runPending();
    EXPECT_EQ(std::pair(output.attempts, failures()), std::pair(3, 1L)) << "one attempt at once";
    double due = sound.loop.mediaTime();
    for (double delay : {0.5, 1.0, 2.0, 4.0, 8.0, 10.0, 10.0}) {
        int attempts = output.attempts;
        due += delay;
        sound.loop.advance(due - 0.01 - sound.loop.mediaTime());
        ASSERT_EQ(output.attempts, attempts) << "not before " << delay << " s";
        ASSERT_TRUE(std::ranges::all_of(output.pull(800), [](float x) { return x == 0.0f; })) << "silent while away";
        sound.loop.advance(0.02);
        ASSERT_EQ(std::pair(output.attempts, failures()), std::pair(attempts + 1, static_cast<long>(attempts - 1))) << "one line after " << delay << " s";
    }
    EXPECT_EQ(std::pair(engine->state(), engine->isWaitingForOutput()), std::pair(State::idle, true));

    // Back at the next attempt: both layers start over together under one
    // master gain rising from 0 along smoothstep, and nothing is heard twice.
    output.refusal.reset();
    sound.loop.advance(due + 10.0 + 0.01 - sound.loop.mediaTime());
    EXPECT_TRUE(logged("Audio output back after 8 failed attempts"));
    EXPECT_FALSE(engine->isWaitingForOutput());
    std::vector<float> gains;
    for (int k = 0; k < 61; ++k) {
        auto heard = output.pull(static_cast<int>(LockstepAudio::stepFrames));
        for (std::size_t f = 0; f < LockstepAudio::stepFrames; ++f) {
            std::size_t j = gains.size();
            gains.push_back(heard[2 * f] / music(j));
            ASSERT_NEAR(heard[2 * f + 1], ambience(j) * gains.back(), 1e-6) << "frame " << j;
        }
        sound.loop.advance(LockstepAudio::step);
    }
    EXPECT_EQ(gains.front(), 0.0f);
    EXPECT_EQ(gains.back(), 1.0f);
    EXPECT_TRUE(std::ranges::is_sorted(gains));
    expectSmooth(gains, 1.5 * 1.01, 1.0); // smoothstep's steepest slope over the start's fade-in of 1 s
}

// A start that finds no output is tried again, and a new start meanwhile is
// what comes back. Any stop while a lost output waits for its next attempt
// ends everything at once; so does a lost output while a stop fades out.
TEST_F(AmbientAudioEngineTest, AStopEndsTheWaitForALostOutputAtOnceAndNothingIsTriedAfterIt)
{
    auto& output = onManualOutput();
    constant("music.wav", 0.5f, 0.0f);
    fs::path other = constant("other.wav", 0.0f, 0.5f);
    auto world = testing::soundWorld(dir.path(), "meadow", "music.wav", std::nullopt);
    output.refusal = "no device";
    startAndLoad(world, world.musicURL(), 0.5);
    EXPECT_TRUE(logged("Audio engine failed to start: no device"));
    EXPECT_EQ(std::pair(engine->state(), engine->isWaitingForOutput()), std::pair(State::idle, true));
    startAndLoad(world, other, 0.5);
    output.refusal.reset();
    sound.loop.advance(0.5 + 0.6);
    EXPECT_EQ(output.starts, 1);
    auto heard = output.pull(1);
    EXPECT_EQ(std::pair(heard[0], heard[1]), std::pair(0.0f, 0.25f)) << "only the new music, faded in";

    int completions = 0;
    output.refusal = "gone";
    output.changed();
    sound.loop.runPending();
    ASSERT_TRUE(engine->isWaitingForOutput());
    engine->setIsMuted(true); // no fade, no pause: nothing to hear
    engine->stop(0.8, [&] { ++completions; });
    EXPECT_EQ(std::pair(engine->state(), completions), std::pair(State::idle, 1));

    output.refusal.reset();
    engine->setIsMuted(false);
    startAndLoad(world, world.musicURL(), 0);
    engine->stop(0.8, [&] { ++completions; });
    output.refusal = "gone";
    output.changed();
    sound.loop.runPending();
    EXPECT_EQ(std::pair(engine->state(), completions), std::pair(State::idle, 2)) << "lost while fading out";

    int attempts = output.attempts;
    sound.loop.advance(60);
    EXPECT_EQ(output.attempts, attempts);
    EXPECT_EQ(sound.loop.pendingCount(), 0u);
}

// The master's fades follow smoothstep over exactly their length and move the
// gain a little every sample.
TEST_F(AmbientAudioEngineTest, MasterFadesFollowSmoothstepOverExactlyTheirLengthWithoutZipper)
{
    constant("music.wav", 0.5f, 0.5f);
    auto& engine = make(); // music level 0.5: the layer gives 0.25 at full master
    auto world = testing::soundWorld(dir.path(), "meadow", "music.wav", std::nullopt);
    int enginesBefore = AmbientAudioEngine::activeEngineCount();
    const float level = 0.25f;
    auto expectSmoothTo = [&](const StereoSignal& heard, double fade, float end) {
        expectSmooth(heard.left, level * 1.5, fade); // smoothstep's steepest slope is 1.5
        EXPECT_EQ(heard.left.back(), end);
    };

    startAndLoad(world, world.musicURL(), 1.5);
    EXPECT_EQ(AmbientAudioEngine::activeEngineCount(), enginesBefore + 1);
    EXPECT_TRUE(sound.renderStep(engine).isSilent());
    for (int k = 1; k <= 90; ++k) {
        float heard = engine.masterGain();
        ASSERT_NEAR(heard, smoothstep(k / 90.0), 1e-6) << "step " << k;
        ASSERT_EQ(sound.renderStep(engine).left.back(), level * heard) << "step " << k;
    }

    engine.setIsMuted(true);
    expectSmoothTo(sound.renderSteps(engine, 24), AmbientAudioEngine::muteFade, 0.0f);
    EXPECT_FALSE(engine.isEngineRunning()) << "a finished mute pauses";
    engine.setIsMuted(false);
    expectSmoothTo(sound.renderSteps(engine, 43), 0.7, level); // coming back takes twice as long

    int completions = 0;
    engine.stop(0.8, [&] { ++completions; });
    EXPECT_EQ(engine.state(), State::stopping);
    StereoSignal release = sound.renderSteps(engine, 48);
    EXPECT_EQ(completions, 0);
    release.append(sound.renderSteps(engine, AmbientAudioEngine::fadeSettleTicks + 1));
    expectSmoothTo(release, 0.8, 0.0f);
    for (int k = 1; k <= 48; ++k) // each quantum ends on the level of its step
        ASSERT_NEAR(release.left[(k + 1) * LockstepAudio::stepFrames - 1], level * (1 - smoothstep(k / 48.0)), 1e-6) << "step " << k;
    EXPECT_EQ(completions, 1);
    EXPECT_EQ(engine.state(), State::idle);
    EXPECT_EQ(AmbientAudioEngine::activeEngineCount(), enginesBefore);

    // While loading a stop completes at once, and the decoded sources are dropped.
    engine.start(world, 1.0);
    engine.stop(0.5, [&] { ++completions; });
    EXPECT_EQ(completions, 2);
    sound.loop.runPending();
    EXPECT_EQ(engine.state(), State::idle);
}

// Music a on the left, b on the right: each sample tells one player's gain.
TEST_F(AmbientAudioEngineTest, MusicCrossfadesAreEqualPowerAndASecondSwitchCarriesOnFromThePresentLevels)
{
    constant("a.wav", 0.5f, 0.0f);
    fs::path b = constant("b.wav", 0.0f, 0.5f);
    fs::path quiet = constant("quiet.wav", 0.0f, 0.0f);
    auto& engine = make();
    engine.setMusicVolume(0.8f);
    auto world = testing::soundWorld(dir.path(), "meadow", "a.wav", std::nullopt);
    startAndLoad(world, world.musicURL(), 0);
    int engines = AmbientAudioEngine::activeEngineCount();

    engine.start(world, b, 2.0); // the same world: only the music switches
    EXPECT_EQ(engine.requestedMusicURL(), b);
    sound.loop.runPending();
    EXPECT_EQ(AmbientAudioEngine::activeEngineCount(), engines);
    EXPECT_TRUE(logged("Music switched to b.wav from frame 0 over 2.0 s"));
    const float level = 0.5f * 0.8f;
    StereoSignal crossfade;
    for (int k = 0; k <= 120; ++k) {
        StereoSignal block = sound.renderStep(engine);
        crossfade.append(block);
        float x = crossfadeAngle(k / 120.0);
        ASSERT_NEAR(block.left.back(), level * std::cos(x), 1e-6) << "step " << k;
        ASSERT_NEAR(block.right.back(), level * std::sin(x), 1e-6) << "step " << k;
    }
    EXPECT_EQ(sound.render(engine).left.back(), 0.0f);
    // Each player's gain moves a little every sample: cos and sin of π/2 × smoothstep are at most 3π/4 steep.
    expectSmooth(crossfade.left, level * 0.75 * std::numbers::pi, 2.0);
    expectSmooth(crossfade.right, level * 0.75 * std::numbers::pi, 2.0);

    // Back to a, stopped halfway by a switch to silence: both fading players
    // keep their level, then leave together.
    engine.switchMusic(world.musicURL(), 2.0);
    sound.loop.runPending();
    sound.renderSteps(engine, 60);
    StereoSignal halfway = sound.render(engine);
    engine.switchMusic(quiet, 1.0);
    sound.loop.runPending();
    StereoSignal carried = sound.renderStep(engine);
    EXPECT_EQ(std::pair(carried.left.back(), carried.right.back()), std::pair(halfway.left.back(), halfway.right.back())) << "no jump";
    sound.renderSteps(engine, 29);
    EXPECT_NEAR(sound.render(engine).left.back(), halfway.left.back() * std::cos(crossfadeAngle(0.5)), 1e-6);
    sound.renderSteps(engine, 31);
    EXPECT_TRUE(sound.render(engine).isSilent());
}

TEST_F(AmbientAudioEngineTest, AWorldWithoutPlayableAudioStaysIdleAndOneBrokenLayerLeavesTheOther)
{
    testing::writeText(dir / "broken.wav", "not a sound file");
    constant("ambience.wav", 0.0f, 0.5f);
    auto& engine = make();
    int enginesBefore = AmbientAudioEngine::activeEngineCount();

    auto broken = testing::soundWorld(dir.path(), "broken", "broken.wav", "absent.wav");
    startAndLoad(broken, broken.musicURL(), 1.0);
    EXPECT_EQ(engine.state(), State::idle);
    EXPECT_EQ(AmbientAudioEngine::activeEngineCount(), enginesBefore);
    for (const char* line : {"Could not open broken.wav: ", "Could not read absent.wav: ", "World has no playable audio"})
        EXPECT_TRUE(logged(line)) << line;

    auto half = testing::soundWorld(dir.path(), "half", "broken.wav", "ambience.wav");
    startAndLoad(half, half.musicURL(), 0);
    EXPECT_FALSE(engine.requestedMusicURL().has_value());
    StereoSignal block = sound.renderStep(engine);
    EXPECT_EQ(std::pair(block.left.back(), block.right.back()), std::pair(0.0f, 0.5f * 0.7f));
}

TEST_F(AmbientAudioEngineTest, SilenceNowStepsDownWhileBlockingAndStopImmediatelyCutsAtOnce)
{
    constant("music.wav", 0.5f, 0.5f);
    auto& engine = make();
    auto world = testing::soundWorld(dir.path(), "meadow", "music.wav", std::nullopt);
    startAndLoad(world, world.musicURL(), 0);
    engine.silenceNow(1.0);
    EXPECT_EQ(engine.state(), State::idle);
    EXPECT_EQ(sound.levelsWhileSleeping, (std::vector<float>{0.9f, 0.8f, 0.7f, 0.6f, 0.5f, 0.4f, 0.3f, 0.2f, 0.1f, 0.0f}));

    // Muted without a fade: already silent, so nothing to wait for.
    startAndLoad(world, world.musicURL(), 0);
    engine.setMuted(true, 0);
    EXPECT_FALSE(engine.isEngineRunning());
    engine.silenceNow(1.0);
    EXPECT_EQ(sound.sleeps, std::vector<double>(10, 0.1)) << "ten steps of a tenth each, and none when already silent";

    startAndLoad(world, world.musicURL(), 4.0);
    sound.renderSteps(engine, 30);
    engine.stopImmediately();
    EXPECT_TRUE(sound.renderSteps(engine, 240).isSilent()); // the fade-in's timer is gone too
    EXPECT_EQ(sound.loop.pendingCount(), 0u);
    EXPECT_TRUE(logged("Sound stopped"));
}

// A new ambience decodes while the old one plays on; a later version of the
// world is taken over without restarting the sound.
TEST_F(AmbientAudioEngineTest, AmbienceDecodesInTheBackgroundAndAdoptingAVersionSwitchesWithoutARestart)
{
    constant("a.wav", 0.5f, 0.0f);
    fs::path b = constant("b.wav", 0.0f, 0.5f);
    constant("music.wav", 0.0f, 0.0f);
    auto& engine = make(queued());
    engine.setAmbienceVolume(1);
    auto world = testing::soundWorld(dir.path(), "meadow", std::nullopt, "a.wav");
    engine.start(world, 0);
    decodeAndApply();
    ASSERT_EQ(engine.state(), State::playing);

    engine.switchAmbience(b);
    EXPECT_TRUE(engine.isWaitingForAmbience());
    EXPECT_EQ(engine.requestedAmbienceURL(), b);
    std::optional<bool> waited;
    engine.waitForAmbience(10, [&](bool decoded) { waited = decoded; });
    EXPECT_EQ(sound.renderSteps(engine, 30).left.back(), 0.5f);
    EXPECT_FALSE(waited.has_value());
    decodeAndApply();
    EXPECT_EQ(waited, true);
    StereoSignal switched = sound.renderSteps(engine, 182);
    EXPECT_EQ(std::pair(switched.left.back(), switched.right.back()), std::pair(0.0f, 0.5f));
    EXPECT_TRUE(logged("Ambience switched to b.wav over 3.0 s"));

    int engines = AmbientAudioEngine::activeEngineCount();
    engine.adopt(testing::soundWorld(dir.path(), "meadow", "music.wav", "a.wav"));
    decodeAndApply();
    EXPECT_EQ(engine.musicURL(), dir / "music.wav");
    EXPECT_EQ(engine.ambienceURL(), dir / "a.wav"); // held since it was let go: no decode
    EXPECT_EQ(engine.ambienceDecodesStarted(), 1);
    EXPECT_EQ(AmbientAudioEngine::activeEngineCount(), engines);
    engine.adopt(testing::soundWorld(dir.path(), "lake", std::nullopt, "b.wav"));
    decodeAndApply();
    EXPECT_EQ(engine.world()->id(), "lake") << "another world starts over";
}

TEST_F(AmbientAudioEngineTest, MusicBeginsAtTheNextEntryPointAndOnlyTheLatestSwitchIsHeard)
{
    fs::path music = ramp("music.wav", 1000);
    fs::path b = constant("b.wav", 0.0f, 0.5f);
    fs::path c = constant("c.wav", 0.0f, 0.25f);
    auto services = queued();
    services.entryPoints = [&](const fs::path& url) { return url == music ? std::vector<std::int64_t>{300, 700} : std::vector<std::int64_t>{}; };
    auto& engine = make(std::move(services));
    engine.setMusicVolume(1);
    auto world = testing::soundWorld(dir.path(), "meadow", "music.wav", std::nullopt);
    for (std::int64_t entry : {300, 700, 300}) {
        engine.stopImmediately();
        engine.start(world, 0);
        decodeAndApply();
        StereoSignal block = sound.renderStep(engine);
        for (std::size_t j = 0; j < block.size(); ++j)
            ASSERT_EQ(block.left[j], static_cast<float>((entry + static_cast<std::int64_t>(j)) % 1000 + 1) / 1000.0f) << entry << " " << j;
    }

    engine.switchMusic(b, 1.0);
    engine.switchMusic(c, 1.0);
    EXPECT_EQ(engine.requestedMusicURL(), c);
    decodeAndApply(); // b arrives unwanted; c is decoded next
    EXPECT_EQ(engine.musicURL(), music);
    decodeAndApply();
    EXPECT_EQ(engine.musicURL(), c);
    EXPECT_FALSE(logged("Music switched to b.wav"));
}

TEST_F(AmbientAudioEngineTest, ABrokenStreamFallsBackToTheWorldsOwnMusic)
{
    constant("own.wav", 0.3f, 0.3f);
    fs::path studio = dir / "studio.wav";
    testing::writeFloatWav(studio, 8000, 2, 180 * 8000 + 4000, [](std::int64_t, int) { return 0.1f; });
    auto& engine = make();
    engine.setMusicVolume(1);
    auto world = testing::soundWorld(dir.path(), "meadow", "own.wav", std::nullopt);
    startAndLoad(world, studio, 0);
    ASSERT_TRUE(logged("Sound started: meadow (music streamed)"));
    EXPECT_NEAR(sound.renderSteps(engine, 30).left.back(), 0.1f, 1e-4);

    // The file loses everything past its first 20 s while it plays.
    // A float WAV header is 58 bytes (format chunk with its extension, fact chunk).
    fs::resize_file(studio, 58 + 20 * 8000 * 2 * 4);
    for (int k = 0; k < 60 * 60 && engine.musicURL() == studio; ++k)
        sound.renderStep(engine);
    ASSERT_EQ(engine.musicURL(), world.musicURL());
    for (const char* line : {"Streaming studio.wav: short read at frame 960000", "Streamed music failed; falling back to the world's own music",
                             "Music switched to own.wav from frame 0 over 2.0 s"})
        EXPECT_TRUE(logged(line)) << line;
    sound.renderSteps(engine, 121);
    EXPECT_FLOAT_EQ(sound.render(engine).left.back(), 0.3f);
}

// Whole decoding believes no header and holds no more than its limit: a file
// one second past the limit is refused, and a one-second file whose header
// claims 3,000,000,000 frames plays as the second it is. A stop cancels the
// decode it leaves behind: the work reads nothing more.
TEST_F(AmbientAudioEngineTest, WholeDecodingGrowsOnlyWithWhatDecodesUpToItsLimitAndAStopCancelsIt)
{
    auto shared = std::make_shared<testing::FakeAudioFile::Shared>();
    auto limit = static_cast<std::int64_t>(AmbientAudioEngine::wholeDecodeLimit * LockstepAudio::sampleRate);
    std::int64_t length = limit + 48'000;
    auto& engine = make(queued([&](const fs::path&, double rate) -> std::expected<std::unique_ptr<AudioFile>, std::string> {
        return std::make_unique<testing::FakeAudioFile>(length, rate, shared);
    }));
    engine.setAmbienceVolume(1);
    engine.start(testing::soundWorld(dir.path(), "long", std::nullopt, "long.wav"), 0);
    engine.stopImmediately();
    decodeAndApply();
    EXPECT_EQ(shared->reads, 0);
    engine.start(testing::soundWorld(dir.path(), "long", std::nullopt, "long.wav"), 0);
    decodeAndApply();
    EXPECT_EQ(engine.state(), State::idle);
    EXPECT_TRUE(logged("Could not read long.wav: the sound is too long to hold whole"));

    length = 48'000;
    shared->claimedLength = 3'000'000'000;
    engine.start(testing::soundWorld(dir.path(), "lying", std::nullopt, "lying.wav"), 0);
    decodeAndApply();
    ASSERT_EQ(engine.state(), State::playing);
    StereoSignal heard = sound.renderSteps(engine, 61); // past the one second: it loops
    EXPECT_EQ(heard.left.back(), testing::FakeAudioFile::left(heard.size() - 1 - 48'000));
}

} // namespace
} // namespace hushmeadows
