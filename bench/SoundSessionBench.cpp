// The sound of a whole session, as users get it: the offline render speed of
// the music and ambience layers during a crossfade (× real time), and the CPU
// that the SDL output path costs while a world plays (CPU seconds per wall
// second, on SDL's dummy driver so that no sound card is needed).

#include "Platforms/Linux/FFmpegAudioFile.h"
#include "Platforms/Linux/FFmpegMediaProbe.h"
#include "Platforms/Linux/LinuxSaverAudio.h"
#include "Platforms/Linux/ThreadRunLoop.h"
#include "tests/support/FixtureKit.h"
#include "tests/support/LockstepAudio.h"

#include <benchmark/benchmark.h>

#include <sys/resource.h>

#include <chrono>
#include <cstdlib>

namespace {

using namespace hushmeadows;
namespace kit = hushmeadows::testing;

// Ten seconds of stereo noise at 48 kHz, written as float WAV.
std::filesystem::path noiseFile(const kit::TempDir& dir, const std::string& name, std::uint32_t seed)
{
    auto path = dir / name;
    std::uint32_t state = seed;
    kit::writeFloatWav(path, 48'000, 2, 480'000, [&state](std::int64_t, int) {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        return static_cast<float>(state) / 4294967296.0f - 0.5f;
    });
    return path;
}

WorldPackage world(const std::filesystem::path& root)
{
    WorldManifest manifest;
    manifest.id = "bench";
    manifest.name = "bench";
    manifest.visual.file = "loop.mp4";
    manifest.audio.music = WorldManifest::Track{"a.wav", 0.5, std::nullopt};
    manifest.audio.ambience = WorldManifest::Track{"ambience.wav", 0.7, std::nullopt};
    return WorldPackage(root, manifest, {});
}

struct Files {
    kit::TempDir dir;
    Files()
    {
        noiseFile(dir, "a.wav", 2463534242u);
        noiseFile(dir, "b.wav", 88675123u);
        noiseFile(dir, "ambience.wav", 521288629u);
    }
};

const Files& files()
{
    static Files made;
    return made;
}

// Music crossfading over an hour while the ambience plays: both layers and the
// outgoing music are mixed, with gains moving every step.
void BM_CrossfadeTwoLayersOffline(benchmark::State& state)
{
    kit::LockstepAudio sound;
    AmbientAudioEngine engine(sound.services(&FFmpegAudioFile::open));
    auto package = world(files().dir.path());
    engine.start(package, 0);
    sound.loop.runPending();
    engine.switchMusic(files().dir / "b.wav", 3600);
    sound.loop.runPending();
    for (auto _ : state) {
        auto block = sound.renderStep(engine);
        benchmark::DoNotOptimize(block.left.data());
    }
    state.counters["x_realtime"] = benchmark::Counter(static_cast<double>(state.iterations()) / 60.0, benchmark::Counter::kIsRate);
}
BENCHMARK(BM_CrossfadeTwoLayersOffline)->MinTime(3);

double cpuSeconds()
{
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    auto seconds = [](const timeval& t) { return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// A world playing through the saver's sound for 10 s on SDL's dummy driver.
void BM_PlayTenSecondsOnSDL(benchmark::State& state)
{
    ::setenv("SDL_AUDIODRIVER", "dummy", 1);
    for (auto _ : state) {
        ThreadRunLoop loop;
        FFmpegMediaProbe media;
        LinuxSaverAudio audio(loop, media);
        auto package = world(files().dir.path());
        int client = 0;
        audio.arbiter().acquire(&client, package, HushmeadowsSettings{});
        loop.runUntil([] { return false; }, 1.0); // decoding and the device opening
        double cpuBefore = cpuSeconds();
        auto wallBefore = std::chrono::steady_clock::now();
        loop.runUntil([] { return false; }, 10.0);
        double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - wallBefore).count();
        state.counters["cpu_per_wall"] = (cpuSeconds() - cpuBefore) / wall;
        audio.arbiter().release(&client, true);
    }
}
BENCHMARK(BM_PlayTenSecondsOnSDL)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
