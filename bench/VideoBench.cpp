// Video decoding through the FFmpeg adapter on a 640 × 360, 48 fps clip: a
// steady frame against the first frame after the loop point (seek to the
// start, flush, decode a key frame). Both must stay well inside one frame's
// time (20.8 ms at 48 fps), which the source hides further by decoding ahead.
// Run from a Release build.

#include "Platforms/Linux/FFmpegVideoFile.h"
#include "tests/support/FixtureKit.h"

#include <benchmark/benchmark.h>

namespace {

using namespace hushmeadows;

const std::filesystem::path& clip()
{
    static const std::filesystem::path& file = testing::video({.width = 640, .height = 360, .fps = 48, .seconds = 2});
    return file;
}

void BM_SteadyFrame(benchmark::State& state)
{
    auto file = FFmpegVideoFile::open(clip()).value();
    ImagePool pool;
    for (auto _ : state) {
        auto frame = file->readFrame(pool);
        if (!frame || !*frame) {
            state.PauseTiming();
            (void)file->rewind();
            state.ResumeTiming();
            continue;
        }
        benchmark::DoNotOptimize(frame);
    }
}
BENCHMARK(BM_SteadyFrame)->Unit(benchmark::kMillisecond);

void BM_FirstFrameAfterLoopPoint(benchmark::State& state)
{
    auto file = FFmpegVideoFile::open(clip()).value();
    ImagePool pool;
    for (auto _ : state) {
        state.PauseTiming();
        // Play the pass out, as the looping source does before it rewinds.
        while (auto frame = file->readFrame(pool)) {
            if (!*frame)
                break;
        }
        state.ResumeTiming();
        (void)file->rewind();
        auto first = file->readFrame(pool);
        benchmark::DoNotOptimize(first);
    }
}
BENCHMARK(BM_FirstFrameAfterLoopPoint)->Unit(benchmark::kMillisecond)->Iterations(5);

} // namespace

BENCHMARK_MAIN();
