#include "Apps/hushmeadows/PlayCommand.h"

#include "Apps/hushmeadows/WorldArgument.h"
#include "Platforms/Linux/FFmpegImageDecoder.h"
#include "Platforms/Linux/FFmpegVideoFile.h"
#include "Platforms/Linux/LinuxPowerEvents.h"
#include "Platforms/Linux/LinuxSaverAudio.h"
#include "Platforms/Linux/SDLRunLoop.h"
#include "Platforms/Linux/SDLSceneSurface.h"
#include "Platforms/Linux/TerminationSignals.h"
#include "Platforms/Linux/ThreadSerialQueue.h"
#include "SceneCore/Picture/PixelSceneView.h"
#include "SceneCore/Picture/PosterStore.h"
#include "SceneCore/Runtime/Calendar.h"
#include "SceneCore/Settings/SettingsStore.h"
#include "SceneCore/Worlds/WorldPackage.h"

#include <SDL.h>

#include <charconv>
#include <chrono>
#include <cstdint>
#include <expected>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace hushmeadows {

namespace {

constexpr const char* usage =
    "usage: hushmeadows play [WORLD] [--window WIDTHxHEIGHT] [--window-id ID] [--poster-only]\n"
    "                        [--framing fill|wholeScene] [--no-pixel-perfect]\n"
    "  WORLD               a package folder (ending in .hushmeadow) or a world id from the library;\n"
    "                      by default the world the saver would choose\n"
    "  --window WxH        a window of that size instead of full screen\n"
    "  --window-id ID      draw into an existing X window (decimal or 0x hexadecimal)\n"
    "  --poster-only       show the world's poster instead of its video\n"
    "  --framing MODE      fill the window, or show the whole scene (overrides the settings)\n"
    "  --no-pixel-perfect  allow fractional scales for pixel art (overrides the settings)\n"
    "Runs until the window is closed, Escape is pressed, or SIGTERM or SIGINT arrives.\n";

struct PlayOptions {
    std::optional<std::string> world;
    std::optional<PixelSize> windowSize;
    std::optional<std::uint64_t> windowID;
    std::optional<Framing> framing;
    bool noPixelPerfect = false;
    bool posterOnly = false;
};

std::optional<int> positiveNumber(std::string_view text)
{
    int value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size() || value <= 0)
        return std::nullopt;
    return value;
}

std::optional<PixelSize> windowSizeOf(std::string_view text)
{
    auto x = text.find('x');
    if (x == std::string_view::npos)
        return std::nullopt;
    auto width = positiveNumber(text.substr(0, x));
    auto height = positiveNumber(text.substr(x + 1));
    if (!width || !height)
        return std::nullopt;
    return PixelSize{*width, *height};
}

std::optional<std::uint64_t> windowIDOf(std::string_view text)
{
    int base = 10;
    if (text.starts_with("0x") || text.starts_with("0X")) {
        text.remove_prefix(2);
        base = 16;
    }
    std::uint64_t value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (text.empty() || error != std::errc{} || end != text.data() + text.size() || value == 0)
        return std::nullopt;
    return value;
}

// The options, or the exit status of a usage error or --help.
std::expected<PlayOptions, int> parse(const std::vector<std::string>& arguments, std::FILE* out, std::FILE* err)
{
    PlayOptions options;
    auto bad = [err](const std::string& problem) {
        std::fprintf(err, "hushmeadows play: %s\n%s", problem.c_str(), usage);
        return std::unexpected(2);
    };
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        auto value = [&]() -> std::optional<std::string> {
            if (i + 1 >= arguments.size())
                return std::nullopt;
            return arguments[++i];
        };
        if (argument == "--help" || argument == "-h") {
            std::fputs(usage, out);
            return std::unexpected(0);
        } else if (argument == "--poster-only") {
            options.posterOnly = true;
        } else if (argument == "--no-pixel-perfect") {
            options.noPixelPerfect = true;
        } else if (argument == "--window") {
            auto text = value();
            auto size = text ? windowSizeOf(*text) : std::nullopt;
            if (!size)
                return bad("--window needs WIDTHxHEIGHT, e.g. 640x360");
            options.windowSize = size;
        } else if (argument == "--window-id") {
            auto text = value();
            auto id = text ? windowIDOf(*text) : std::nullopt;
            if (!id)
                return bad("--window-id needs an X window id");
            options.windowID = id;
        } else if (argument == "--framing") {
            auto text = value();
            auto framing = text ? fromRawValue<Framing>(*text) : std::nullopt;
            if (!framing)
                return bad("--framing needs fill or wholeScene");
            options.framing = framing;
        } else if (argument.starts_with("-")) {
            return bad("unknown option " + argument);
        } else if (options.world) {
            return bad("only one WORLD can be played");
        } else {
            options.world = argument;
        }
    }
    if (options.windowSize && options.windowID)
        return bad("--window and --window-id exclude each other");
    return options;
}

// SDL_Quit at the end of the scope that initialised SDL.
struct SDLSession {
    SDLSession() = default;
    SDLSession(const SDLSession&) = delete;
    SDLSession& operator=(const SDLSession&) = delete;
    ~SDLSession() { SDL_Quit(); }
};

} // namespace

int runPlayCommand(const std::vector<std::string>& arguments, const MediaProbe& media, std::FILE* out, std::FILE* err)
{
    auto options = parse(arguments, out, err);
    if (!options)
        return options.error();

    HushmeadowsSettings settings = SettingsStore(SettingsStore::sharedFileURL()).load();
    if (options->framing)
        settings.framing = *options->framing;
    if (options->noPixelPerfect)
        settings.pixelPerfectScaling = false;

    auto world = findWorld(options->world, settings, media);
    if (!world) {
        std::fprintf(err, "hushmeadows play: %s\n", world.error().c_str());
        return 1;
    }
    const WorldPackage shown = world->version(settings.timeOfDay.phase(std::chrono::system_clock::now(), Calendar::current()));

    // Our own handlers, in place before SDL starts: the first SIGTERM or
    // SIGINT ends the loop however early it comes, and the loop's thread then
    // tears everything down in order.
    SDLRunLoop loop;
    TerminationSignals signals([&loop](int) { loop.quit(); });
    SDL_SetHint(SDL_HINT_NO_SIGNAL_HANDLERS, "1");
    // X11 or nothing (SDL_VIDEODRIVER still wins): SDL would otherwise fall
    // back to its offscreen driver and run with nothing on screen.
    SDL_SetHint(SDL_HINT_VIDEODRIVER, "x11");
    if (options->windowID) {
        // The host that owns the window (XScreenSaver) manages blanking itself.
        SDL_SetHint(SDL_HINT_VIDEO_ALLOW_SCREENSAVER, "1");
    }
    if (SDL_Init(SDL_INIT_VIDEO) != 0) {
        std::fprintf(err, "hushmeadows play: cannot open the display: %s\n", SDL_GetError());
        return 1;
    }
    SDLSession session;

    SDLSceneSurface::WindowOptions windowOptions;
    windowOptions.size = options->windowSize;
    windowOptions.foreignWindow = options->windowID;
    auto surface = SDLSceneSurface::openWindow(windowOptions);
    if (!surface) {
        std::fprintf(err, "hushmeadows play: cannot open a window: %s\n", surface.error().c_str());
        return 1;
    }
    if (!options->windowSize && !options->windowID)
        SDL_ShowCursor(SDL_DISABLE);
    SDLSceneSurface& drawing = **surface;

    PosterStore posters(loop, std::make_unique<ThreadSerialQueue>(PosterStore::queueLabel), std::make_shared<FFmpegImageDecoder>());
    PixelSceneView::VideoSourceMaker makeSource;
    if (!options->posterOnly) {
        makeSource = [&loop](const std::vector<std::filesystem::path>& urls) {
            return std::make_unique<LoopingVideoSource>(urls, loop, std::make_unique<ThreadSerialQueue>(LoopingVideoSource::queueLabel),
                                                        &FFmpegVideoFile::open);
        };
    }
    PixelSceneView view(drawing, posters, loop, std::move(makeSource));
    view.setPixelPerfect(settings.pixelPerfectScaling);
    view.setFillsView(settings.framing == Framing::fill);

    loop.setEventHandler([&](const SDL_Event& event) {
        if (event.type == SDL_QUIT || (event.type == SDL_KEYDOWN && event.key.keysym.sym == SDLK_ESCAPE))
            loop.quit();
        else if (drawing.handleEvent(event))
            view.layout();
        if (auto visible = drawing.visibilityChange(event))
            view.setSuspended(Suspension::occluded, !*visible);
    });
    loop.setBeforeWait([&] { drawing.render(); });

    // The picture holds still while the machine or the displays sleep.
    LinuxPowerEvents power(loop);
    power.observeSuspensions([&view](Suspension reason, bool suspended) { view.setSuspended(reason, suspended); });

    view.load(shown);
    view.play();
    // Sound as the saver would have it: only with the opt-in and not muted,
    // faded in by the arbiter.
    std::unique_ptr<LinuxSaverAudio> sound;
    if (settings.screenSaverAudioEnabled && !settings.isMuted) {
        sound = std::make_unique<LinuxSaverAudio>(loop, media);
        sound->arbiter().acquire(&view, shown, settings);
    }
    loop.run();

    // Cut at once: the sound never outlives the picture.
    if (sound) {
        sound->arbiter().release(&view, true);
        sound.reset();
    }

    view.tearDown();
    loop.setEventHandler({});
    loop.setBeforeWait({});
    return 0;
}

} // namespace hushmeadows
