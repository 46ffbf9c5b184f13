#include "HushmeadowsSaver/HushmeadowsScreenSaverView.h"

#include "HushmeadowsSaver/CompanionAnnouncement.h"
#include "SceneCore/Runtime/Log.h"

#include <fmt/format.h>

#include <cmath>
#include <limits>

namespace hushmeadows {

namespace {

// A rectangle as the platform prints one: {{x, y}, {width, height}}.
std::string printed(const Rect& rect)
{
    return fmt::format("{{{{{}, {}}}, {{{}, {}}}}}", rect.x(), rect.y(), rect.width(), rect.height());
}

long whole(double value) { return std::isfinite(value) ? static_cast<long>(value) : 0; }

} // namespace

std::string_view rawValue(HushmeadowsScreenSaverView::Role role)
{
    switch (role) {
    case HushmeadowsScreenSaverView::Role::idle: return "idle";
    case HushmeadowsScreenSaverView::Role::preview: return "preview";
    case HushmeadowsScreenSaverView::Role::display: return "display";
    case HushmeadowsScreenSaverView::Role::dark: return "dark";
    }
    return "idle";
}

std::string base36(std::uint32_t value)
{
    static constexpr char digits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
    std::string text;
    do {
        text.insert(text.begin(), digits[value % 36]);
        value /= 36;
    } while (value != 0);
    return text;
}

std::string HushmeadowsScreenSaverView::ActivationSignals::description() const
{
    return "state=" + state.description() + " engine=" + (engine ? "true" : "false") + " locked=" + (locked ? "true" : "false")
        + " idle=" + std::to_string(whole(idle)) + "s";
}

HushmeadowsScreenSaverView::HushmeadowsScreenSaverView(ScreenSaverHost& host, SaverServices& services)
    : host_(host)
    , services_(services)
    , self_(std::make_shared<HushmeadowsScreenSaverView*>(this))
    , instanceID_(base36(services.randomNumber()))
{
    loadSettingsAndWorld();

    host_.setAnimationTimeInterval(frameInterval);
    host_.makeBackingLayerBlack();

    Size size = host_.bounds();
    Log::saver.notice("[%{public}s] init preview=%{bool}d size=%ldx%ld world=%{public}s", instanceID_, host_.isPreview(),
                      whole(size.width), whole(size.height), world_ ? world_->id() : std::string("none"));
    if (!world_)
        Log::saver.error("[%{public}s] No valid world package in the screen saver bundle", instanceID_);

    services_.activation.install();
    announcePresence(services_);
}

HushmeadowsScreenSaverView::~HushmeadowsScreenSaverView()
{
    if (frameReport_)
        frameReport_->cancel();
    dropSceneView();
    services_.audio.release(this, true);
}

void HushmeadowsScreenSaverView::loadSettingsAndWorld()
{
    settings_ = services_.loadSettings();
    WorldChoice choice = services_.chooseWorld(settings_);
    library_ = std::move(choice.library);
    catalog_ = std::move(choice.catalog);
    world_ = std::move(choice.world);
    worldSource_ = std::move(choice.source);
}

void HushmeadowsScreenSaverView::startAnimation()
{
    host_.superStartAnimation();
    loadSettingsAndWorld();

    if (world_) {
        DayPhase phase = settings_.timeOfDay.phase(services_.now(), services_.calendar);
        world_ = world_->version(phase);
    }

    logGeometry();

    ActivationSignals signals = currentSignals(services_);
    bool real = isRealActivation(signals);
    Log::saver.notice("[%{public}s] activation %{public}s", instanceID_, signals.description());

    engine_ = real ? runningEngine(services_) : nullptr;

    bool mainDisplay = isOnMainDisplay();
    Role candidate = host_.window() && mainDisplay ? Role::display : Role::dark;
    if (!real)
        role_ = Role::preview;
    else if (settings_.screenSaverAllDisplays)
        role_ = Role::display;
    else
        role_ = candidate;
    bool audioAllowed = role_ == Role::display && settings_.screenSaverAudioEnabled && !settings_.isMuted;

    Log::saver.notice("[%{public}s] start world=%{public}s worlds=%{public}s preview=%{bool}d real=%{bool}d mainDisplay=%{bool}d "
                      "allDisplays=%{bool}d role=%{public}s audioOptIn=%{bool}d muted=%{bool}d audioAllowed=%{bool}d",
                      instanceID_, world_ ? world_->id() : std::string("none"), worldSource_, host_.isPreview(), real, mainDisplay,
                      settings_.screenSaverAllDisplays, rawValue(role_), settings_.screenSaverAudioEnabled, settings_.isMuted, audioAllowed);

    if (real)
        services_.distributedCenter.post(Notification{didStartNotification, std::nullopt});

    if (world_ && role_ != Role::dark) {
        if (!sceneView_) {
            sceneView_ = services_.scenes.makeSceneView(host_.bounds());
            sceneView_->setPixelPerfect(settings_.pixelPerfectScaling);
            sceneView_->setFillsView(settings_.framing == Framing::fill);
            host_.addSceneView(*sceneView_);
        }
        sceneView_->load(*world_);
        sceneView_->play();
        if (audioAllowed)
            services_.audio.acquire(this, *world_, settings_);
        scheduleFrameReport();
    } else {
        dropSceneView();
    }
}

void HushmeadowsScreenSaverView::logGeometry() const
{
    Size bounds = host_.bounds();
    auto window = host_.window();
    std::string windowText = window ? printed(window->frame) + " level=" + std::to_string(window->level) : "nil";
    std::string screenText = window && window->screen ? printed(window->screen->frame) : "nil";
    std::string screensText;
    for (const auto& screen : host_.screens()) {
        if (!screensText.empty())
            screensText += " | ";
        screensText += fmt::format("{},{} {}x{}", whole(screen.frame.x()), whole(screen.frame.y()), whole(screen.frame.width()),
                                   whole(screen.frame.height()));
    }
    Log::saver.notice("[%{public}s] geometry bounds=%ldx%ld window=%{public}s windowScreen=%{public}s screens=[%{public}s]", instanceID_,
                      whole(bounds.width), whole(bounds.height), windowText, screenText, screensText);
}

bool HushmeadowsScreenSaverView::isRealActivation(const ActivationSignals& signals) const
{
    if (host_.isPreview())
        return false;
    switch (signals.state.kind()) {
    case ActivationMonitor::State::Kind::running:
        return !signals.state.fromPreferences();
    case ActivationMonitor::State::Kind::stopped:
        return false;
    case ActivationMonitor::State::Kind::unknown:
        return signals.engine || signals.locked || signals.idle >= realActivationIdleSeconds;
    }
    return false;
}

bool HushmeadowsScreenSaverView::isOnMainDisplay() const
{
    auto window = host_.window();
    if (!window)
        return false;
    auto screens = host_.screens();
    if (screens.empty())
        return true;

    std::optional<ScreenInfo> screen = window->screen;
    if (!screen) {
        // Without a screen of its own, the window is matched by frame, with a
        // screen's vertical origin measured from the top of the first screen.
        double firstHeight = screens.front().frame.height();
        for (const auto& candidate : screens) {
            const Rect& f = candidate.frame;
            double flippedY = firstHeight - (f.y() + f.height());
            if (f.size == window->frame.size && f.x() == window->frame.x() && flippedY == window->frame.y()) {
                screen = candidate;
                break;
            }
        }
    }
    if (!screen) {
        std::optional<ScreenInfo> sameSize;
        int count = 0;
        for (const auto& candidate : screens) {
            if (candidate.frame.size == window->frame.size) {
                sameSize = candidate;
                ++count;
            }
        }
        if (count == 1)
            screen = sameSize;
    }
    if (!screen)
        return true;
    return *screen == screens.front();
}

void HushmeadowsScreenSaverView::animateOneFrame()
{
    if (sceneView_)
        sceneView_->pumpFrame();
    ++timerTicks_;
    if (timerTicks_ % 24 == 0 && engine_ && engine_->isTerminated()) {
        Log::saver.notice("[%{public}s] screen saver engine ended without willstop; stopping", instanceID_);
        stopEverything(false);
    }
    if ((role_ == Role::idle || role_ == Role::dark) && host_.isAnimating())
        host_.superStopAnimation();
}

void HushmeadowsScreenSaverView::stopAnimation()
{
    host_.superStopAnimation();
    Log::saver.notice("[%{public}s] stop", instanceID_);
    stopEverything(true);
}

void HushmeadowsScreenSaverView::viewDidMoveToWindow()
{
    if (!host_.window())
        stopEverything(false);
}

void HushmeadowsScreenSaverView::screenSaverWillStop()
{
    Log::saver.notice("[%{public}s] willstop", instanceID_);
    stopEverything(false);
}

void HushmeadowsScreenSaverView::dropSceneView()
{
    if (!sceneView_)
        return;
    sceneView_->tearDown();
    host_.removeSceneView(*sceneView_);
    sceneView_.reset();
}

void HushmeadowsScreenSaverView::stopEverything(bool fadeAudio)
{
    engine_.reset();
    if (frameReport_) {
        frameReport_->cancel();
        frameReport_.reset();
    }
    dropSceneView();
    role_ = Role::idle;
    services_.audio.release(this, !fadeAudio);
}

void HushmeadowsScreenSaverView::scheduleFrameReport()
{
    if (frameReport_)
        frameReport_->cancel();
    std::weak_ptr<HushmeadowsScreenSaverView*> weak = self_;
    frameReport_ = services_.mainLoop.postAfter(frameReportDelay, [weak] {
        auto alive = weak.lock();
        if (!alive)
            return;
        HushmeadowsScreenSaverView& view = **alive;
        if (!view.sceneView_)
            return;
        Log::saver.notice("[%{public}s] frames after 5 s: %ld role=%{public}s", view.instanceID_, view.sceneView_->framesDisplayed(),
                          rawValue(view.role_));
        const FrameLateness::Summary late = view.sceneView_->frameLateness();
        Log::saver.notice("[%{public}s] frame lateness after 5 s: p50=%.1f ms p99=%.1f ms max=%.1f ms skipped=%ld", view.instanceID_,
                          late.median * 1000, late.p99 * 1000, late.maximum * 1000, late.skipped);
    });
}

void HushmeadowsScreenSaverView::announcePresence(SaverServices& services)
{
    services.distributedCenter.post(
        Notification{std::string(CompanionAnnouncement::name), CompanionAnnouncement::versionText(services.shortVersion, services.buildVersion)});
}

HushmeadowsScreenSaverView::ActivationSignals HushmeadowsScreenSaverView::currentSignals(SaverServices& services)
{
    ActivationSignals signals;
    signals.state = services.activation.state();
    signals.engine = runningEngine(services) != nullptr;
    signals.locked = services.session.screenIsLocked().value_or(false);
    signals.idle = services.session.idleSeconds();
    return signals;
}

std::shared_ptr<WatchedProcess> HushmeadowsScreenSaverView::runningEngine(SaverServices& services)
{
    std::shared_ptr<WatchedProcess> latest;
    double latestLaunch = -std::numeric_limits<double>::infinity();
    for (const auto& app : services.session.engineProcesses()) {
        if (!app.process || app.process->isTerminated())
            continue;
        double launched = app.launchDate.value_or(-std::numeric_limits<double>::infinity());
        if (!latest || launched > latestLaunch) {
            latest = app.process;
            latestLaunch = launched;
        }
    }
    return latest;
}

std::map<std::string, HushmeadowsScreenSaverView::DiagnosticValue> HushmeadowsScreenSaverView::hushmeadowsDiagnostics() const
{
    auto audio = services_.audio.diagnostics(this);
    std::map<std::string, DiagnosticValue> values;
    values["worldID"] = world_ ? world_->id() : std::string("none");
    values["isPreview"] = host_.isPreview();
    values["role"] = std::string(rawValue(role_));
    values["isPlaying"] = sceneView_ ? sceneView_->isPlaying() : false;
    values["loopCount"] = sceneView_ ? sceneView_->loopCount() : 0L;
    values["framesDisplayed"] = sceneView_ ? sceneView_->framesDisplayed() : 0L;
    values["hasSceneView"] = sceneView_ != nullptr;
    values["liveSceneViews"] = static_cast<long>(services_.scenes.liveSceneViews());
    values["liveVideoSources"] = static_cast<long>(services_.scenes.liveVideoSources());
    values["activeAudioEngines"] = static_cast<long>(audio.activeEngines);
    values["audioClients"] = static_cast<long>(audio.clients);
    values["audioState"] = audio.state;
    values["ownsAudio"] = audio.ownsAudio;
    values["audioMusicVolume"] = audio.musicVolume;
    values["audioAmbienceVolume"] = audio.ambienceVolume;
    values["settingsMuted"] = settings_.isMuted;
    values["settingsAudioOptIn"] = settings_.screenSaverAudioEnabled;
    values["settingsAllDisplays"] = settings_.screenSaverAllDisplays;
    return values;
}

} // namespace hushmeadows
