#include "Apps/hushmeadows/PlayCommand.h"

#include "Apps/hushmeadows/HelpText.h"
#include "Apps/hushmeadows/SaverScreen.h"
#include "Apps/hushmeadows/WindowID.h"
#include "Apps/hushmeadows/WorldArgument.h"
#include "Platforms/Linux/FFmpegImageDecoder.h"
#include "Platforms/Linux/FFmpegInput.h"
#include "Platforms/Linux/LinuxPowerEvents.h"
#include "Platforms/Linux/LinuxSaverAudio.h"
#include "Platforms/Linux/LinuxSaverSession.h"
#include "Platforms/Linux/SDLRunLoop.h"
#include "Platforms/Linux/SDLSceneSurface.h"
#include "Platforms/Linux/TerminationSignals.h"
#include "Platforms/Linux/ThreadSerialQueue.h"
#include "Platforms/Linux/X11SaverDisplay.h"
#include "SceneCore/Picture/PosterStore.h"
#include "SceneCore/Runtime/Log.h"

#include <SDL.h>

#include <chrono>
#include <charconv>
#include <cstdlib>
#include <cstdint>
#include <expected>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace hushmeadows {

namespace {

constexpr const char* usage = HelpText::play;

// How often a foreign window's destruction is looked for, as by the saver.
constexpr double destructionPollInterval = 0.1;

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
            auto id = text ? parseWindowID(*text) : std::nullopt;
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

} // namespace

int runPlayCommand(const std::vector<std::string>& arguments, const MediaProbe& media, std::FILE* out, std::FILE* err)
{
    auto options = parse(arguments, out, err);
    if (!options)
        return options.error();

    auto loadSettings = [stored = SaverScreen::storedSettings(), framing = options->framing, noPixelPerfect = options->noPixelPerfect] {
        HushmeadowsSettings settings = stored();
        if (framing)
            settings.framing = *framing;
        if (noPixelPerfect)
            settings.pixelPerfectScaling = false;
        return settings;
    };
    // A world that cannot be had is said before any window opens.
    auto world = findWorld(options->world, loadSettings(), media);
    if (!world) {
        std::fprintf(err, "hushmeadows play: %s\n", world.error().c_str());
        return 1;
    }
    // The world named on the command line, or the saver's own choice.
    std::function<WorldChoice(const HushmeadowsSettings&)> chooseWorld = SaverScreen::libraryWorlds(media);
    if (options->world)
        chooseWorld = [named = *world](const HushmeadowsSettings&) { return WorldChoice{{}, std::nullopt, named, "direct"}; };

    // Our own handlers, in place before SDL starts: the first SIGTERM or
    // SIGINT ends the loop however early it comes, and whatever FFmpeg is
    // reading gives up at once, so that a scan on the loop's thread cannot
    // hold the exit up.
    SDLRunLoop loop;
    // However busy the machine, the viewer is gone a quarter of a second after SIGTERM.
    TerminationSignals signals(
        [&loop](int) {
            FFmpegInput::abandonAll();
            loop.quit();
        },
        std::chrono::milliseconds{250});

    auto display = X11SaverDisplay::open();
    if (!display) {
        std::fprintf(err, "hushmeadows play: %s\n", display.error().c_str());
        return 1;
    }
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
    SaverScreen::SDLVideo video;

    if (options->windowID) {
        // Its owner may destroy it at any moment: we end with it.
        if (!(*display)->windowFrame(*options->windowID)) {
            std::fprintf(err, "hushmeadows play: there is no X window 0x%llx on this display\n",
                         static_cast<unsigned long long>(*options->windowID));
            return 1;
        }
        (*display)->watchForDestruction(*options->windowID);
    }

    SDLSceneSurface::WindowOptions windowOptions;
    windowOptions.size = options->windowSize;
    windowOptions.foreignWindow = options->windowID;
    auto surface = SDLSceneSurface::openWindow(windowOptions);
    auto window = surface ? (*surface)->x11Window() : std::nullopt;
    if (!surface || !window) {
        std::fprintf(err, "hushmeadows play: cannot open a window: %s\n", surface ? "it is not an X window" : surface.error().c_str());
        return 1;
    }
    if (!options->windowSize && !options->windowID)
        SDL_ShowCursor(SDL_DISABLE);

    // The saver's view in its preview role: no activation, so no sound.
    PosterStore posters(loop, std::make_unique<ThreadSerialQueue>(PosterStore::queueLabel), std::make_shared<FFmpegImageDecoder>(), media);
    LinuxSaverAudio sound(loop, media);
    LinuxSaverSession session(**display, nullptr);
    ActivationMonitor activation;
    SaverScreen::Shared shared{loop, **display, posters, session, sound.arbiter(), activation, loadSettings, chooseWorld, true,
                               options->posterOnly};
    SaverScreen screen = SaverScreen::open(shared, *window, std::move(*surface));
    screen.host->setFrameHandler([&screen] { screen.view->animateOneFrame(); });

    loop.setEventHandler([&](const SDL_Event& event) {
        if (event.type == SDL_QUIT || (event.type == SDL_KEYDOWN && event.key.keysym.sym == SDLK_ESCAPE))
            loop.quit();
        else
            screen.handleEvent(event);
    });
    loop.setBeforeWait([&screen] { screen.host->render(); });
    // The picture holds still while the machine or the displays sleep.
    LinuxPowerEvents power(loop);
    power.observeSuspensions([&screen](Suspension reason, bool suspended) { screen.setSuspended(reason, suspended); });

    std::shared_ptr<Cancellable> poll;
    bool destroyed = false;
    if (options->windowID) {
        poll = loop.scheduleRepeating(destructionPollInterval, [&] {
            if (!(*display)->takeEvents().destroyed)
                return;
            Log::saver.notice("stopping: the window was destroyed");
            destroyed = true;
            screen.host->windowWasDestroyed();
            screen.view->viewDidMoveToWindow();
            loop.quit();
        });
    }

    screen.view->startAnimation();
    loop.run();
    screen.logFrameLateness();
    if (poll)
        poll->cancel();
    if (!destroyed) // else already stopped, with nothing left to draw on
        screen.view->stopAnimation();
    // The picture has stopped: the kernel releases decoders, threads and the
    // display at once, where an orderly teardown would wait for whatever the
    // queues are still doing.
    std::fflush(nullptr);
    std::_Exit(0);
}

} // namespace hushmeadows
