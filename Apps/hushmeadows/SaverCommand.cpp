#include "Apps/hushmeadows/SaverCommand.h"

#include "Apps/hushmeadows/HelpText.h"
#include "Apps/hushmeadows/SaverScreen.h"
#include "Apps/hushmeadows/WindowID.h"
#include "Platforms/Linux/DisplayAudioLock.h"
#include "Platforms/Linux/FFmpegImageDecoder.h"
#include "Platforms/Linux/FFmpegInput.h"
#include "Platforms/Linux/LinuxSaverAudio.h"
#include "Platforms/Linux/LinuxPowerEvents.h"
#include "Platforms/Linux/LinuxSaverSession.h"
#include "Platforms/Linux/ParentProcess.h"
#include "Platforms/Linux/SDLRunLoop.h"
#include "Platforms/Linux/SDLSceneSurface.h"
#include "Platforms/Linux/TerminationSignals.h"
#include "Platforms/Linux/ThreadSerialQueue.h"
#include "Platforms/Linux/X11SaverDisplay.h"
#include "SceneCore/Runtime/Log.h"

#include <SDL.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <expected>

namespace hushmeadows {

namespace {

constexpr const char* usage = HelpText::saver;

// Everything is checked twice a second at most between frames; a tenth of a
// second keeps a destroyed window or a dead parent from waiting long, and
// costs nothing a dark monitor would notice.
constexpr double pollInterval = 0.1;
// However busy the machine, the process is gone this long after SIGTERM; the
// orderly stop, which logs what was drawn, takes a few milliseconds when idle.
constexpr std::chrono::milliseconds exitWithin{250};

enum class Mode { daemon, preview, standalone };

struct SaverOptions {
    Mode mode = Mode::standalone;
    std::uint64_t window = 0;
};

std::expected<SaverOptions, int> parse(const std::vector<std::string>& arguments, std::FILE* out, std::FILE* err)
{
    SaverOptions options;
    std::optional<std::uint64_t> windowID;
    auto bad = [err](const std::string& problem) {
        std::fprintf(err, "hushmeadows saver: %s\n%s", problem.c_str(), usage);
        return std::unexpected(2);
    };
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        std::string argument = arguments[i];
        // Hacks take their options with one dash or two.
        if (argument.starts_with("--"))
            argument.erase(0, 1);
        if (argument == "-help" || argument == "-h") {
            std::fputs(usage, out);
            return std::unexpected(0);
        } else if (argument == "-root" || argument == "-fps" || argument == "-install") {
        } else if (argument == "-visual") {
            if (++i >= arguments.size())
                return bad("-visual needs a value");
        } else if (argument == "-window-id") {
            windowID = i + 1 < arguments.size() ? parseWindowID(arguments[++i]) : std::nullopt;
            if (!windowID)
                return bad("--window-id needs an X window id");
        } else {
            return bad("unknown option " + arguments[i]);
        }
    }
    if (windowID) {
        options.mode = Mode::preview;
        options.window = *windowID;
    } else if (const char* named = std::getenv("XSCREENSAVER_WINDOW"); named && *named) {
        auto id = parseWindowID(named);
        if (!id) {
            std::fprintf(err, "hushmeadows saver: XSCREENSAVER_WINDOW is not a window id: %s\n", named);
            return std::unexpected(1);
        }
        options.mode = Mode::daemon;
        options.window = *id;
    }
    return options;
}

} // namespace

int runSaverCommand(const std::vector<std::string>& arguments, const MediaProbe& media, std::FILE* out, std::FILE* err)
{
    auto options = parse(arguments, out, err);
    if (!options)
        return options.error();
    const bool hosted = options->mode != Mode::standalone;

    // The parent first: if it is already gone there is nothing to draw for.
    std::shared_ptr<ParentProcess> parent;
    if (hosted) {
        parent = ParentProcess::watch();
        if (!parent) {
            std::fprintf(err, "hushmeadows saver: the program that started it has already exited\n");
            return 0;
        }
    }

    SDLRunLoop loop;
    std::vector<SaverScreen> screens;
    auto stopAll = [&](const char* why) {
        Log::saver.notice("stopping: %{public}s", why);
        for (auto& screen : screens) {
            screen.logFrameLateness();
            screen.view->screenSaverWillStop();
        }
        loop.quit();
    };
    // In place before SDL starts, so that the first SIGTERM, however early,
    // ends the run; the stop itself runs on the loop, and whatever FFmpeg is
    // reading (a scan on the loop's thread, a sound loading) gives up at once.
    TerminationSignals signals(
        [&loop, &stopAll](int) {
            loop.post([&stopAll] { stopAll("SIGTERM"); });
            FFmpegInput::abandonAll();
        },
        exitWithin);

    auto display = X11SaverDisplay::open();
    if (!display) {
        std::fprintf(err, "hushmeadows saver: %s\n", display.error().c_str());
        return 1;
    }
    X11SaverDisplay& x = **display;

    std::vector<std::uint64_t> windows;
    // The monitors the standalone saver covers, one window and view each, in
    // the order of its views.
    std::vector<Rect> covered;
    if (hosted) {
        if (!x.windowFrame(options->window)) {
            std::fprintf(err, "hushmeadows saver: there is no X window 0x%llx on this display\n",
                         static_cast<unsigned long long>(options->window));
            return 1;
        }
        x.watchForDestruction(options->window);
        windows.push_back(options->window);
    } else {
        covered = x.monitors();
        for (const Rect& monitor : covered)
            windows.push_back(x.createCoveringWindow(monitor));
        if (!x.grabInput(windows.front()))
            Log::saver.error("keyboard or pointer could not be grabbed: only SIGTERM and input the windows see end the saver");
    }

    SDL_SetHint(SDL_HINT_NO_SIGNAL_HANDLERS, "1");
    SDL_SetHint(SDL_HINT_VIDEODRIVER, "x11");
    // The daemon, or we ourselves, decide about blanking.
    SDL_SetHint(SDL_HINT_VIDEO_ALLOW_SCREENSAVER, "1");
    if (SDL_Init(SDL_INIT_VIDEO) != 0) {
        std::fprintf(err, "hushmeadows saver: cannot start drawing: %s\n", SDL_GetError());
        return 1;
    }
    SaverScreen::SDLVideo video;

    PosterStore posters(loop, std::make_unique<ThreadSerialQueue>(PosterStore::queueLabel), std::make_shared<FFmpegImageDecoder>(), media);
    LinuxSaverAudio sound(loop, media);
    DisplayAudioLock audio(sound.arbiter(), DisplayAudioLock::defaultPath());
    LinuxSaverSession session(x, options->mode == Mode::daemon ? parent : nullptr);

    // The daemon launched us on its window, or the user's idle hook ran us:
    // either is the screen saver starting for real. Afterwards the daemon's
    // own state is what the monitor hears.
    X11SaverDisplay::DaemonState daemonState = x.daemonState();
    ActivationMonitor activation([&](ActivationMonitor& monitor) {
        if (options->mode != Mode::preview)
            monitor.screenSaverDidStart(false);
    });
    auto followDaemon = [&] {
        auto now = x.daemonState();
        if (now == daemonState)
            return;
        daemonState = now;
        if (now == X11SaverDisplay::DaemonState::blank || now == X11SaverDisplay::DaemonState::lock)
            activation.screenSaverDidStart(false);
        else if (now == X11SaverDisplay::DaemonState::unblank)
            activation.screenSaverDidStop();
    };

    SaverScreen::Shared shared{
        loop, x, posters, session, audio, activation, SaverScreen::storedSettings(), SaverScreen::libraryWorlds(media),
        options->mode == Mode::preview, false,
    };

    // A view on one window, not yet started; none (said on stderr) when SDL
    // cannot draw there.
    auto openScreen = [&](std::uint64_t window) -> SaverScreen* {
        SDLSceneSurface::WindowOptions windowOptions;
        windowOptions.foreignWindow = window;
        auto surface = SDLSceneSurface::openWindow(windowOptions);
        if (!surface) {
            std::fprintf(err, "hushmeadows saver: cannot draw into window 0x%llx: %s\n", static_cast<unsigned long long>(window),
                         surface.error().c_str());
            return nullptr;
        }
        SaverScreen& screen = screens.emplace_back(SaverScreen::open(shared, window, std::move(*surface)));
        HushmeadowsScreenSaverView& view = *screen.view;
        screen.host->setFrameHandler([&view, &loop, &parent] {
            view.animateOneFrame();
            // The view's own engine check stopped everything: nothing is left to do.
            if (parent && parent->isTerminated() && view.role() == HushmeadowsScreenSaverView::Role::idle)
                loop.quit();
        });
        if (!view.world())
            std::fprintf(err, "hushmeadows saver: no world found; showing black\n");
        return &screen;
    };

    screens.reserve(windows.size());
    for (std::uint64_t window : windows) {
        if (!openScreen(window)) {
            // The views made so far go before the sound and monitor they use.
            screens.clear();
            return 1;
        }
    }

    // The standalone saver covers the monitors as they come and go: one
    // added gets a view, one removed loses its view. A view whose monitor
    // becomes the first, or stops being it, starts afresh to take its new
    // role, the new main view before the old one lets go, so that the sound
    // passes from one to the other without a gap or a second stream.
    // The server's list as last seen: its order says which monitor is first.
    std::vector<Rect> listed = covered;
    auto followMonitors = [&] {
        std::vector<Rect> now = x.monitors();
        if (now == listed)
            return;
        Log::saver.notice("monitors changed: %ld to %ld", static_cast<long>(listed.size()), static_cast<long>(now.size()));
        auto present = [](const std::vector<Rect>& list, const Rect& monitor) {
            return std::find(list.begin(), list.end(), monitor) != list.end();
        };
        auto restart = [&](const Rect& monitor) {
            auto it = std::find(covered.begin(), covered.end(), monitor);
            if (it == covered.end())
                return;
            HushmeadowsScreenSaverView& view = *screens[static_cast<std::size_t>(it - covered.begin())].view;
            view.stopAnimation();
            view.startAnimation();
        };
        const Rect oldFirst = listed.front();
        listed = now;
        const Rect& newFirst = now.front();
        // The new main view first: a view for a new monitor, or the view
        // already on the monitor that is now first.
        if (oldFirst != newFirst)
            restart(newFirst);
        for (const Rect& monitor : now) {
            if (present(covered, monitor))
                continue;
            std::uint64_t window = x.createCoveringWindow(monitor);
            SaverScreen* screen = openScreen(window);
            if (!screen) {
                x.destroyCoveringWindow(window);
                continue;
            }
            covered.push_back(monitor);
            screen->view->startAnimation();
        }
        if (oldFirst != newFirst && present(now, oldFirst))
            restart(oldFirst);
        bool grabLost = false;
        for (std::size_t i = screens.size(); i-- > 0;) {
            if (present(now, covered[i]))
                continue;
            std::uint64_t window = screens[i].window;
            screens[i].view->screenSaverWillStop();
            screens[i].close();
            screens.erase(screens.begin() + static_cast<std::ptrdiff_t>(i));
            covered.erase(covered.begin() + static_cast<std::ptrdiff_t>(i));
            grabLost = grabLost || i == 0;
            x.destroyCoveringWindow(window);
        }
        if (grabLost && !screens.empty() && !x.grabInput(screens.front().window))
            Log::saver.error("keyboard or pointer could not be grabbed again: only SIGTERM and input the windows see end the saver");
    };

    loop.setEventHandler([&](const SDL_Event& event) {
        for (auto& screen : screens)
            screen.handleEvent(event);
    });
    // The picture holds still while the machine or the displays sleep.
    LinuxPowerEvents power(loop);
    power.observeSuspensions([&screens](Suspension reason, bool suspended) {
        for (auto& screen : screens)
            screen.setSuspended(reason, suspended);
    });
    loop.setBeforeWait([&] {
        for (auto& screen : screens)
            screen.host->render();
    });
    auto poll = loop.scheduleRepeating(pollInterval, [&] {
        auto events = x.takeEvents();
        if (events.destroyed) {
            Log::saver.notice("stopping: the window was destroyed");
            for (auto& screen : screens) {
                screen.host->windowWasDestroyed();
                screen.view->viewDidMoveToWindow();
            }
            loop.quit();
        } else if (events.input && !hosted) {
            stopAll("input");
        } else if (parent && parent->isTerminated()) {
            stopAll("the program that started it exited");
        } else {
            followDaemon();
            if (!hosted)
                followMonitors();
        }
    });

    for (auto& screen : screens)
        screen.view->startAnimation();
    loop.run();
    poll->cancel();

    for (auto& screen : screens)
        Log::saver.notice("[%{public}s] frames drawn: %ld", screen.view->instanceID(), screen.surface->framesRendered());
    // Picture and sound have stopped, and the daemon counts the moments
    // until we are gone: the kernel releases decoders, threads, the sound
    // connection and the display faster than an orderly teardown would.
    std::fflush(nullptr);
    std::_Exit(0);
}

} // namespace hushmeadows
