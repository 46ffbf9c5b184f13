#include "Apps/hushmeadows/SaverScreen.h"

#include "Apps/hushmeadows/ProgramPaths.h"
#include "SceneCore/Runtime/Log.h"
#include "SceneCore/Settings/SettingsStore.h"

#include <random>

namespace hushmeadows {

namespace {

// Nobody on Linux listens for the saver's announcements yet: they are logged.
class LoggingCenter final : public NotificationCenter {
public:
    void post(const Notification& notification) override { Log::saver.info("announced %{public}s", notification.name); }
};

} // namespace

std::function<HushmeadowsSettings()> SaverScreen::storedSettings()
{
    return [] { return SettingsStore(SettingsStore::sharedFileURL()).load(); };
}

std::function<WorldChoice(const HushmeadowsSettings&)> SaverScreen::libraryWorlds(const MediaProbe& media)
{
    return [folders = linuxWorldsFolders(Environment::current(), bundledWorldsFolder()), &media](const HushmeadowsSettings& settings) {
        return chooseWorld(settings, folders, media);
    };
}

SaverScreen SaverScreen::open(Shared& shared, std::uint64_t window, std::unique_ptr<SDLSceneSurface> surface)
{
    static LoggingCenter center;
    Bundle bundle = programBundle();
    auto version = [&bundle](const char* key) -> std::optional<std::string> {
        auto it = bundle.info.find(key);
        return it == bundle.info.end() ? std::nullopt : std::optional<std::string>(it->second);
    };

    SaverScreen screen;
    screen.window = window;
    screen.surface = std::move(surface);
    screen.host = std::make_unique<LinuxSaverHost>(shared.loop, shared.display, window, *screen.surface, shared.posters, shared.preview);
    if (shared.postersOnly)
        screen.host->showPostersOnly();
    screen.services = std::make_unique<SaverServices>(SaverServices{
        shared.loop,
        center,
        shared.session,
        shared.audio,
        *screen.host,
        shared.activation,
        shared.loadSettings,
        shared.chooseWorld,
        version("CFBundleShortVersionString"),
        version("CFBundleVersion"),
        [random = std::make_shared<std::random_device>()] { return static_cast<std::uint32_t>((*random)()); },
        [] { return std::chrono::system_clock::now(); },
        Calendar::current(),
    });
    screen.view = std::make_unique<HushmeadowsScreenSaverView>(*screen.host, *screen.services);
    return screen;
}

void SaverScreen::handleEvent(const SDL_Event& event)
{
    SceneView* scene = view->sceneView();
    if (surface->handleEvent(event) && scene)
        scene->layout();
    if (auto visible = surface->visibilityChange(event); visible && scene)
        scene->setSuspended(Suspension::occluded, !*visible);
}

void SaverScreen::setSuspended(Suspension reason, bool suspended)
{
    if (SceneView* scene = view->sceneView())
        scene->setSuspended(reason, suspended);
}

void SaverScreen::close()
{
    view.reset();
    services.reset();
    host.reset();
    surface.reset();
}

} // namespace hushmeadows

namespace hushmeadows {

void SaverScreen::logFrameLateness() const
{
    SceneView* scene = view->sceneView();
    if (!scene)
        return;
    const FrameLateness::Summary late = scene->frameLateness();
    Log::saver.notice("[%{public}s] frames shown: %ld late p50=%.1f ms p99=%.1f ms max=%.1f ms skipped=%ld pixels drawn: %lld",
                      view->instanceID(), late.frames, late.median * 1000, late.p99 * 1000, late.maximum * 1000, late.skipped,
                      surface->pixelsDrawn());
}

} // namespace hushmeadows
