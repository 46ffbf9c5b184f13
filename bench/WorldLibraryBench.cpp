// How fast a library folder of many packages is scanned, beside the floor of
// only listing and stat-ing the same files.
#include "Platforms/Linux/FFmpegMediaProbe.h"
#include "SceneCore/Runtime/Log.h"
#include "SceneCore/Worlds/WorldLibrary.h"
#include "tests/support/FixtureKit.h"
#include "tests/support/PackageWriter.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <map>

namespace {

namespace fs = std::filesystem;
using namespace hushmeadows;

constexpr int packageCount = 1000;

// 1,000 packages, each with a video, a poster and music, built once.
const fs::path& libraryFolder()
{
    static testing::TempDir dir;
    static fs::path folder = [] {
        auto root = dir / "Worlds";
        for (int i = 0; i < packageCount; ++i) {
            std::string id = "world-" + std::to_string(i);
            auto manifest = testing::PackageWriter::minimalManifest(id);
            manifest["visual"]["poster"] = "poster.png";
            manifest["audio"] = {{"music", {{"file", "music.flac"}, {"defaultVolume", 0.5}}}};
            testing::PackageWriter::write(root, id + ".hushmeadow", manifest,
                                          {{"loop.mp4", testing::video()}, {"poster.png", testing::poster(640, 360)},
                                           {"music.flac", testing::audio({.seconds = 2.0, .container = "flac"})}});
        }
        return root;
    }();
    return folder;
}

void ScanLibrary(benchmark::State& state)
{
    const auto& folder = libraryFolder();
    FFmpegMediaProbe media;
    std::size_t loaded = 0;
    for (auto _ : state) {
        auto library = WorldLibrary::searching({folder}, media);
        loaded = library.worlds().size();
        benchmark::DoNotOptimize(library);
    }
    if (loaded != packageCount)
        state.SkipWithError("not every package loaded");
    state.counters["packages/s"] = benchmark::Counter(static_cast<double>(packageCount), benchmark::Counter::kIsIterationInvariantRate);
}

// The floor: list every package folder and stat each file it holds.
void ListAndStat(benchmark::State& state)
{
    const auto& folder = libraryFolder();
    for (auto _ : state) {
        std::uintmax_t bytes = 0;
        for (const auto& entry : fs::directory_iterator(folder))
            for (const auto& file : fs::directory_iterator(entry.path()))
                bytes += fs::file_size(file.path());
        benchmark::DoNotOptimize(bytes);
    }
    state.counters["packages/s"] = benchmark::Counter(static_cast<double>(packageCount), benchmark::Counter::kIsIterationInvariantRate);
}

BENCHMARK(ScanLibrary)->Unit(benchmark::kMillisecond)->MinTime(3.0);
BENCHMARK(ListAndStat)->Unit(benchmark::kMillisecond)->MinTime(1.0);

// The console report, then the scan's time per iteration over the floor's.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const auto& run : runs)
            if (run.run_type == Run::RT_Iteration)
                seconds_[run.run_name.function_name] = run.GetAdjustedRealTime();
        ConsoleReporter::ReportRuns(runs);
    }
    void Finalize() override
    {
        ConsoleReporter::Finalize();
        if (seconds_.contains("ScanLibrary") && seconds_.contains("ListAndStat") && seconds_["ListAndStat"] > 0)
            std::printf("scan / list-and-stat floor: %.1fx\n", seconds_["ScanLibrary"] / seconds_["ListAndStat"]);
    }

private:
    std::map<std::string, double> seconds_;
};

} // namespace

int main(int argc, char** argv)
{
    // The scan logs nothing for good packages; keep stderr quiet regardless.
    hushmeadows::Log::setSink(nullptr);
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
}
