#include "Apps/hushmeadows/RenderAudioCommand.h"

#include "Apps/hushmeadows/CommandOptions.h"

#include "Apps/hushmeadows/HelpText.h"
#include "Apps/hushmeadows/WorldArgument.h"
#include "HushmeadowsSaver/SaverAudio.h"
#include "Platforms/Linux/FFmpegAudioFile.h"
#include "SceneCore/Runtime/ImmediateSerialQueue.h"
#include "SceneCore/Runtime/ManualRunLoop.h"
#include "SceneCore/Settings/SettingsStore.h"
#include "SceneCore/Sound/FloatWavWriter.h"
#include "SceneCore/Sound/StudioMusic.h"

#include <charconv>
#include <cmath>

namespace hushmeadows {

namespace {

constexpr const char* usage = HelpText::renderAudio;
constexpr double sampleRate = 48000;
constexpr std::uint32_t framesPerTick = 800; // 1/60 s: one step of the fade timers

// Offline, the machine never sleeps.
class NoPowerEvents final : public SystemPowerEvents {
public:
    void observe(Handler) override {}
};

std::optional<double> number(const std::string& text)
{
    double value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size() || !std::isfinite(value))
        return std::nullopt;
    return value;
}

} // namespace

int runRenderAudioCommand(const std::vector<std::string>& arguments, const MediaProbe& media, std::FILE* out, std::FILE* err)
{
    std::optional<std::string> worldArgument;
    std::optional<double> seconds;
    std::optional<std::filesystem::path> output;
    double fadeIn = SaverAudio::acquireFadeIn;
    std::optional<DayPhase> phase;
    auto bad = [&](const std::string& problem) {
        std::fprintf(err, "hushmeadows render-audio: %s\n%s", problem.c_str(), usage);
        return 2;
    };
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        bool hasValue = i + 1 < arguments.size();
        if (argument == "--help" || argument == "-h") {
            std::fputs(usage, out);
            return 0;
        } else if (argument == "--seconds") {
            seconds = hasValue ? number(arguments[++i]) : std::nullopt;
            if (!seconds || *seconds <= 0)
                return bad("--seconds needs a positive number");
        } else if (argument == "--out") {
            if (!hasValue)
                return bad("--out needs a file");
            output = arguments[++i];
        } else if (argument == "--fade-in") {
            auto value = hasValue ? number(arguments[++i]) : std::nullopt;
            if (!value || *value < 0)
                return bad("--fade-in needs seconds, 0 or more");
            fadeIn = *value;
        } else if (argument == "--phase") {
            phase = hasValue ? DayPhase::fromRawValue(arguments[++i]) : std::nullopt;
            if (!phase)
                return bad("--phase is day or night");
        } else if (isOptionWord(argument)) {
            return bad("unknown option " + argument);
        } else if (!worldArgument) {
            worldArgument = argument;
        } else {
            return bad("one world at a time");
        }
    }
    if (!seconds || !output)
        return bad("--seconds and --out are needed");

    HushmeadowsSettings settings = SettingsStore(SettingsStore::sharedFileURL()).load();
    auto world = findWorld(worldArgument, settings, media);
    if (!world) {
        std::fprintf(err, "hushmeadows render-audio: %s\n", world.error().c_str());
        return 1;
    }
    DayPhase shown = phase.value_or(settings.timeOfDay.phase(std::chrono::system_clock::now(), Calendar::current()));
    WorldPackage version = world->version(shown);

    ManualRunLoop loop;
    NoPowerEvents noPower;
    AudioFormat format{sampleRate, 2};
    SaverAudio::Services services{
        .engine =
            AmbientAudioEngine::Services{
                .mainLoop = loop,
                .makeOutput = {}, // the offline format below gives every session an offline output
                .openFile = FFmpegAudioFile::open,
                // Decoding runs at once; its result still comes back through the loop.
                .runInBackground = [](std::function<void()> work) { work(); },
                .makeSerialQueue = [](const std::string& label) { return std::make_unique<ImmediateSerialQueue>(label); },
                .sleep = [](double) {},
                .sampleRate = sampleRate,
                .offlineFormat = format,
                .entryPoints = {},
            },
        .powerEvents = noPower,
        .loadOverlay = [&media](const WorldPackage& package) { return StudioMusic::load(package, media); },
        .now = [] { return std::chrono::system_clock::now(); },
        .calendar = Calendar::current(),
    };
    SaverAudio audio(std::move(services));
    int client = 0;
    audio.acquire(&client, version, settings, fadeIn, shown);
    loop.runPending();

    auto writer = FloatWavWriter::create(*output, static_cast<int>(sampleRate), 2);
    if (!writer) {
        std::fprintf(err, "hushmeadows render-audio: %s\n", writer.error().c_str());
        return 1;
    }
    auto buffer = PCMBuffer::make(format, framesPerTick);
    std::vector<float> interleaved(framesPerTick * 2);
    auto total = static_cast<std::int64_t>(std::llround(*seconds * sampleRate));
    for (std::int64_t done = 0; done < total;) {
        auto frames = static_cast<std::uint32_t>(std::min<std::int64_t>(framesPerTick, total - done));
        if (auto rendered = audio.engine().renderOffline(frames, *buffer); !rendered) {
            std::fprintf(err, "hushmeadows render-audio: %s\n", rendered.error().c_str());
            return 1;
        }
        const float* left = buffer->channelData(0);
        const float* right = buffer->channelData(1);
        for (std::uint32_t i = 0; i < frames; ++i) {
            interleaved[2 * i] = left[i];
            interleaved[2 * i + 1] = right[i];
        }
        writer->append(interleaved.data(), frames);
        done += frames;
        loop.advance(static_cast<double>(frames) / sampleRate);
    }
    audio.release(&client, true);
    if (auto finished = writer->finish(); !finished) {
        std::fprintf(err, "hushmeadows render-audio: %s\n", finished.error().c_str());
        return 1;
    }
    std::fprintf(out, "%s: %.3f s of %s (%s)\n", output->c_str(), *seconds, version.id().c_str(), std::string(shown.rawValue()).c_str());
    return 0;
}

} // namespace hushmeadows
