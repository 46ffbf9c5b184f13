#pragma once

#include "HushmeadowsSaver/HushmeadowsScreenSaverView.h"
#include "Platforms/Linux/LinuxSaverHost.h"
#include "Platforms/Linux/SDLSceneSurface.h"
#include "Platforms/Linux/X11SaverDisplay.h"
#include "SceneCore/Picture/PosterStore.h"
#include "SceneCore/Runtime/MediaProbe.h"

#include <SDL.h>

#include <cstdint>
#include <functional>
#include <memory>

namespace hushmeadows {

// One saver view of this program on one X window, over the Linux host: the
// saver makes one per monitor or one on the daemon's window, play one preview
// on its own window. Members go in reverse order, the view first.
struct SaverScreen {
    // What every view of the process is built over.
    struct Shared {
        RunLoop& loop;
        X11SaverDisplay& display;
        PosterStore& posters;
        SystemSession& session;
        AudioArbiter& audio;
        ActivationMonitor& activation;
        std::function<HushmeadowsSettings()> loadSettings;
        std::function<WorldChoice(const HushmeadowsSettings&)> chooseWorld;
        bool preview = false;
        bool postersOnly = false;
    };

    // SDL_Quit at the end of the scope that initialised SDL's video.
    struct SDLVideo {
        SDLVideo() = default;
        SDLVideo(const SDLVideo&) = delete;
        SDLVideo& operator=(const SDLVideo&) = delete;
        ~SDLVideo() { SDL_Quit(); }
    };

    // The saver's settings file, read afresh on every call.
    static std::function<HushmeadowsSettings()> storedSettings();
    // The saver's choice among the worlds folders of this installation.
    static std::function<WorldChoice(const HushmeadowsSettings&)> libraryWorlds(const MediaProbe& media);

    // A view, not yet started, drawing through `surface` into X `window`.
    static SaverScreen open(Shared& shared, std::uint64_t window, std::unique_ptr<SDLSceneSurface> surface);

    // Size and visibility changes of the window reach its scene view.
    void handleEvent(const SDL_Event& event);
    void setSuspended(Suspension reason, bool suspended);
    // Logs how late the video's frames came over the whole run (the
    // benchmark reads it); call before the view stops.
    void logFrameLateness() const;
    // Everything gone, the view before what it uses, as in destruction; a
    // move assignment would free the services before the view that holds them.
    void close();

    std::uint64_t window = 0;
    std::unique_ptr<SDLSceneSurface> surface;
    std::unique_ptr<LinuxSaverHost> host;
    std::unique_ptr<SaverServices> services;
    std::unique_ptr<HushmeadowsScreenSaverView> view;
};

} // namespace hushmeadows
