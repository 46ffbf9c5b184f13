// The mixer's offline render speed, and the memory that
// streaming a long music file costs against decoding it whole. Run from a
// Release build; the memory comparison generates a 30-minute FLAC file once
// (about half a minute of ffmpeg) and decodes it twice.

#include "Platforms/Linux/FFmpegAudioFile.h"
#include "SceneCore/Runtime/ManualRunLoop.h"
#include "SceneCore/Sound/LoopStreamer.h"
#include "tests/support/FixtureKit.h"
#include "tests/support/ManualSerialQueue.h"
#include "tests/support/OfflineAudio.h"

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <optional>

namespace {

using namespace hushmeadows;
namespace kit = hushmeadows::testing;

constexpr double rate = 48'000;

// Resident bytes of this process, from /proc/self/statm.
std::int64_t residentBytes()
{
    std::ifstream statm("/proc/self/statm");
    std::int64_t size = 0, resident = 0;
    statm >> size >> resident;
    return resident * static_cast<std::int64_t>(::sysconf(_SC_PAGESIZE));
}

double mebibytes(std::int64_t bytes) { return static_cast<double>(bytes) / (1024.0 * 1024.0); }

std::shared_ptr<PCMBuffer> noise(std::uint32_t frames, std::uint32_t seed)
{
    std::uint32_t state = seed;
    auto next = [&state](std::uint32_t) {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        return static_cast<float>(state) / 4294967296.0f - 0.5f;
    };
    return kit::makeBuffer(frames, next, next, rate);
}

// Four looping players with different loop lengths, at fade-like volumes.
// Argument: frames per render quantum (1024 is what the SDL device asks for).
void BM_OfflineRenderFourPlayers(benchmark::State& state)
{
    auto quantum = static_cast<std::uint32_t>(state.range(0));
    ManualRunLoop loop;
    kit::OfflineMixer offline(loop, rate, quantum);
    std::vector<std::shared_ptr<AudioPlayer>> players;
    for (std::uint32_t i = 0; i < 4; ++i) {
        auto player = offline.mixer().addPlayer();
        player->scheduleBuffer(noise(48'000 + 7'919 * i, 2463534242u + i), AudioPlayer::loops);
        player->setVolume(0.3f + 0.1f * static_cast<float>(i));
        player->play();
        players.push_back(player);
    }
    offline.mixer().setOutputVolume(0.8f);
    for (auto _ : state) {
        auto out = offline.render(quantum);
        benchmark::DoNotOptimize(out.left.data());
        benchmark::ClobberMemory();
    }
    // Seconds of sound per second of work: how many times faster than real time.
    state.counters["x_realtime"] = benchmark::Counter(static_cast<double>(state.iterations()) * quantum / rate, benchmark::Counter::kIsRate);
}
BENCHMARK(BM_OfflineRenderFourPlayers)->Arg(512)->Arg(1024)->Arg(4096);

// A quiet 30-minute sine, 48 kHz stereo FLAC, made once per process.
const std::filesystem::path& thirtyMinuteFile()
{
    static kit::TempDir folder;
    static std::filesystem::path file = [] {
        std::filesystem::path path = folder / "thirty-minutes.flac";
        kit::runCommand("ffmpeg -hide_banner -loglevel error -nostdin -y -f lavfi -i "
                        + kit::shellQuoted("sine=frequency=220:sample_rate=48000:duration=1800,volume=0.25")
                        + " -ac 2 -c:a flac " + kit::shellQuoted(path.string()));
        return path;
    }();
    return file;
}

// Growth of the resident memory in MiB, for the summary.
std::optional<double> streamed, decodedWhole;

// The whole file streamed through a LoopStreamer into the offline graph, with
// the streamer's queue run between render quanta; the peak growth of the
// resident memory over the run.
void BM_StreamThirtyMinutes(benchmark::State& state)
{
    const auto& path = thirtyMinuteFile();
    for (auto _ : state) {
        std::int64_t before = residentBytes();
        std::int64_t peak = before;
        ManualRunLoop loop;
        kit::OfflineMixer graph(loop, rate, 4096);
        auto queue = std::make_unique<kit::ManualSerialQueue>(LoopStreamer::queueLabel);
        auto* streamQueue = queue.get();
        auto made = LoopStreamer::make(path, &FFmpegAudioFile::open, rate, std::move(queue));
        if (!made) {
            state.SkipWithError(made.error().c_str());
            return;
        }
        auto node = graph.mixer().addPlayer();
        node->play();
        (*made)->start(node, 0);
        streamQueue->runAll();
        std::int64_t remaining = (*made)->length();
        std::int64_t quanta = 0;
        while (remaining > 0) {
            graph.render(4096);
            streamQueue->runAll();
            remaining -= 4096;
            if (++quanta % 64 == 0)
                peak = std::max(peak, residentBytes());
        }
        peak = std::max(peak, residentBytes());
        state.counters["rss_growth_MiB"] = mebibytes(peak - before);
        state.counters["buffers_MiB"] = mebibytes((*made)->residentBytes());
        state.counters["underruns"] = (*made)->underrunCount();
        streamed = mebibytes(peak - before);
        (*made)->stop();
        node->stop();
    }
}
BENCHMARK(BM_StreamThirtyMinutes)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

// The whole file decoded into one PCMBuffer, as short music is.
void BM_DecodeThirtyMinutesWhole(benchmark::State& state)
{
    const auto& path = thirtyMinuteFile();
    for (auto _ : state) {
        std::int64_t before = residentBytes();
        auto file = FFmpegAudioFile::open(path, rate);
        if (!file) {
            state.SkipWithError(file.error().c_str());
            return;
        }
        auto buffer = PCMBuffer::make((*file)->processingFormat(), static_cast<std::uint32_t>((*file)->length()));
        if (!buffer || !(*file)->read(*buffer)) {
            state.SkipWithError("decoding failed");
            return;
        }
        std::int64_t after = residentBytes();
        state.counters["rss_growth_MiB"] = mebibytes(after - before);
        decodedWhole = mebibytes(after - before);
        benchmark::DoNotOptimize(buffer->channelData(0));
    }
}
BENCHMARK(BM_DecodeThirtyMinutesWhole)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    if (streamed || decodedWhole) {
        std::printf("\nResident memory for a 30-minute 48 kHz stereo FLAC:\n");
        std::printf("  %-34s %10s\n", "", "growth");
        if (streamed)
            std::printf("  %-34s %7.1f MiB\n", "streamed through the LoopStreamer", *streamed);
        if (decodedWhole)
            std::printf("  %-34s %7.1f MiB\n", "decoded whole into one PCMBuffer", *decodedWhole);
    }
    return 0;
}
