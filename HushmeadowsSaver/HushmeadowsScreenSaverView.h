#pragma once

#include "HushmeadowsSaver/ActivationMonitor.h"
#include "HushmeadowsSaver/AudioArbiter.h"
#include "HushmeadowsSaver/NotificationCenter.h"
#include "HushmeadowsSaver/ScreenSaverHost.h"
#include "HushmeadowsSaver/SystemSession.h"
#include "HushmeadowsSaver/WorldChoice.h"
#include "SceneCore/Picture/SceneView.h"
#include "SceneCore/Runtime/Calendar.h"
#include "SceneCore/Runtime/RunLoop.h"
#include "SceneCore/Settings/HushmeadowsSettings.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>

namespace hushmeadows {

// What every screen saver view of the process shares: the main run loop, the
// notification centre, the session, the one sound, the activation monitor,
// and how settings and worlds are found.
struct SaverServices {
    RunLoop& mainLoop;
    NotificationCenter& distributedCenter;
    SystemSession& session;
    AudioArbiter& audio;
    SceneViewFactory& scenes;
    ActivationMonitor& activation;
    std::function<HushmeadowsSettings()> loadSettings;
    std::function<WorldChoice(const HushmeadowsSettings&)> chooseWorld;
    // The version texts of the installed saver; a missing one reads "0".
    std::optional<std::string> shortVersion;
    std::optional<std::string> buildVersion;
    std::function<std::uint32_t()> randomNumber;
    std::function<std::chrono::system_clock::time_point()> now;
    Calendar calendar = Calendar::current();
};

// The screen saver's principal view, as portable logic: one per display and
// one for the settings' preview. It decides its role, shows the world through
// a scene view, claims sound when it may, and stops at once when the screen
// saver ends, also when the engine quits without saying so.
class HushmeadowsScreenSaverView {
public:
    enum class Role { idle, preview, display, dark };

    struct ActivationSignals {
        ActivationMonitor::State state = ActivationMonitor::State::unknown();
        bool engine = false;
        bool locked = false;
        double idle = 0;
        // "state=unknown engine=true locked=false idle=61s"
        std::string description() const;
    };

    static constexpr const char* didStartNotification = "app.hushmeadows.screensaver.didstart";
    static constexpr double frameInterval = 1.0 / 48.0;
    static constexpr double realActivationIdleSeconds = 55.0;
    static constexpr double frameReportDelay = 5.0;

    // Creation: loads settings, chooses the world, installs the activation
    // monitor and announces itself.
    HushmeadowsScreenSaverView(ScreenSaverHost& host, SaverServices& services);
    // Releases the sound at once.
    ~HushmeadowsScreenSaverView();

    HushmeadowsScreenSaverView(const HushmeadowsScreenSaverView&) = delete;
    HushmeadowsScreenSaverView& operator=(const HushmeadowsScreenSaverView&) = delete;

    void startAnimation();
    void stopAnimation();
    void animateOneFrame();
    // Called after the view moved to another window or out of one.
    void viewDidMoveToWindow();
    // The host's word that the screen saver is about to end: everything
    // stops, the sound is cut.
    void screenSaverWillStop();

    bool hasConfigureSheet() const { return false; }

    // Class-level operations, over the shared services.
    static void announcePresence(SaverServices& services);
    static ActivationSignals currentSignals(SaverServices& services);
    static std::shared_ptr<WatchedProcess> runningEngine(SaverServices& services);

    using DiagnosticValue = std::variant<bool, long, double, std::string>;
    std::map<std::string, DiagnosticValue> hushmeadowsDiagnostics() const;

    Role role() const { return role_; }
    const std::string& instanceID() const { return instanceID_; }
    const HushmeadowsSettings& settings() const { return settings_; }
    const std::optional<WorldPackage>& world() const { return world_; }
    const std::string& worldSource() const { return worldSource_; }
    const WorldLibrary& library() const { return library_; }
    const std::optional<WorldCatalog>& catalog() const { return catalog_; }
    SceneView* sceneView() const { return sceneView_.get(); }
    long timerTicks() const { return timerTicks_; }

private:
    void loadSettingsAndWorld();
    bool isRealActivation(const ActivationSignals& signals) const;
    bool isOnMainDisplay() const;
    void logGeometry() const;
    void stopEverything(bool fadeAudio);
    void scheduleFrameReport();
    void dropSceneView();

    ScreenSaverHost& host_;
    SaverServices& services_;
    // Shared with the frame report, which does nothing once the view has gone.
    std::shared_ptr<HushmeadowsScreenSaverView*> self_;

    std::unique_ptr<SceneView> sceneView_;
    WorldLibrary library_;
    std::optional<WorldCatalog> catalog_;
    std::string worldSource_ = "fallback";
    HushmeadowsSettings settings_;
    std::optional<WorldPackage> world_;
    std::string instanceID_;
    Role role_ = Role::idle;
    std::shared_ptr<Cancellable> frameReport_;
    std::shared_ptr<WatchedProcess> engine_;
    long timerTicks_ = 0;
};

std::string_view rawValue(HushmeadowsScreenSaverView::Role role);

// A number in base 36 with lower-case digits: the instance identifier.
std::string base36(std::uint32_t value);

} // namespace hushmeadows
