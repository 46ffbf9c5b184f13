// hushmeadows-worldgen: draws and composes the bundled world at build time,
// so the repository holds the recipe and never the media.
#include "tools/worldgen/MeadowPackage.h"
#include "tools/worldgen/MusicSynth.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

constexpr const char* usage =
    "usage: hushmeadows-worldgen --out DIR [--ffmpeg PATH] [--video-seconds 8..12] [--ambience-seconds 10..60] [--self-check | --check]\n"
    "  writes DIR/meadow.hushmeadow: day and night videos (640x360, 12 fps) with posters,\n"
    "  a 48 s music loop and two ambience loops (FLAC, 48 kHz stereo) and world.json.\n"
    "  Defaults: 12 s of video, 24 s of ambience.\n"
    "  --self-check  afterwards, read the package back and check loops, seams and levels\n"
    "  --check       only check the package already in DIR, made with the same options\n";

bool parseSeconds(const char* text, int low, int high, int& value)
{
    char* end = nullptr;
    long parsed = std::strtol(text, &end, 10);
    if (end == text || *end != '\0' || parsed < low || parsed > high)
        return false;
    value = static_cast<int>(parsed);
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    using namespace hushmeadows::worldgen;
    GeneratorOptions options;
    bool selfCheck = false;
    bool checkOnly = false;
    for (int i = 1; i < argc; ++i) {
        std::string argument = argv[i];
        bool hasValue = i + 1 < argc;
        if (argument == "--help" || argument == "-h") {
            std::fputs(usage, stdout);
            return 0;
        } else if (argument == "--self-check") {
            selfCheck = true;
        } else if (argument == "--check") {
            checkOnly = true;
        } else if (argument == "--out" && hasValue) {
            options.out = argv[++i];
        } else if (argument == "--ffmpeg" && hasValue) {
            options.ffmpeg = argv[++i];
        } else if (argument == "--video-seconds" && hasValue) {
            if (!parseSeconds(argv[++i], 8, 12, options.videoSeconds)) {
                std::fprintf(stderr, "hushmeadows-worldgen: --video-seconds takes 8 to 12\n");
                return 2;
            }
        } else if (argument == "--ambience-seconds" && hasValue) {
            if (!parseSeconds(argv[++i], 10, 60, options.ambienceSeconds)) {
                std::fprintf(stderr, "hushmeadows-worldgen: --ambience-seconds takes 10 to 60\n");
                return 2;
            }
        } else {
            std::fprintf(stderr, "hushmeadows-worldgen: unexpected %s\n%s", argument.c_str(), usage);
            return 2;
        }
    }
    if (options.out.empty()) {
        std::fputs(usage, stderr);
        return 2;
    }

    // A failing ffmpeg closes its end of the pipe; report that instead of dying silently.
    std::signal(SIGPIPE, SIG_IGN);

    MeadowPackage package(options);
    if (checkOnly)
        return package.selfCheck(stdout) ? 0 : 1;
    if (auto written = package.write(); !written) {
        std::fprintf(stderr, "hushmeadows-worldgen: %s\n", written.error().c_str());
        return 1;
    }
    if (selfCheck && !package.selfCheck(stdout))
        return 1;
    return 0;
}
