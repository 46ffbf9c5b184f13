#pragma once

#include "HushmeadowsSaver/AudioArbiter.h"
#include "HushmeadowsSaver/NotificationCenter.h"
#include "HushmeadowsSaver/ScreenSaverHost.h"
#include "HushmeadowsSaver/SystemSession.h"
#include "SceneCore/Picture/SceneView.h"

#include <map>
#include <string>
#include <vector>

// Test doubles at the screen saver's ports: they make platform events
// deterministic and record every call the view makes.
namespace hushmeadows::testing {

// Delivers synchronously, in the order observers were added.
class FakeNotificationCenter final : public NotificationCenter {
public:
    Token addObserver(const std::string& name, Handler handler) override;
    void removeObserver(Token token) override;
    void post(const Notification& notification) override;

    std::vector<Notification> posted;
    int observerCount(const std::string& name) const;

private:
    struct Observer {
        std::string name;
        Handler handler;
    };
    std::map<Token, Observer> observers_;
    Token next_ = 1;
};

class FakeProcess final : public WatchedProcess {
public:
    bool terminated = false;
    bool isTerminated() const override { return terminated; }
};

class FakeSession final : public SystemSession {
public:
    std::vector<RunningApplication> applications;
    std::optional<bool> locked;
    double idle = 0;

    std::vector<RunningApplication> runningApplications() const override { return applications; }
    std::optional<bool> screenIsLocked() const override { return locked; }
    double idleSeconds() const override { return idle; }

    // Adds a running screen saver engine and returns it.
    std::shared_ptr<FakeProcess> launchEngine(std::optional<double> launchDate = 1.0);
};

struct AudioCall {
    std::string kind; // "acquire" or "release"
    const void* client;
    std::string worldID;
    bool immediately = false;
};

class RecordingAudioArbiter final : public AudioArbiter {
public:
    std::vector<AudioCall> calls;
    std::vector<const void*> clients;

    void acquire(const void* client, const WorldPackage& world, const HushmeadowsSettings& settings) override;
    void release(const void* client, bool immediately) override;
    Diagnostics diagnostics(const void* client) const override;
};

class RecordingSceneView final : public SceneView {
public:
    explicit RecordingSceneView(Size bounds, std::vector<std::string>& journal, int& live);
    ~RecordingSceneView() override;

    void setPixelPerfect(bool value) override;
    void setFillsView(bool value) override;
    void load(const WorldPackage& world) override;
    void play() override;
    void pumpFrame() override;
    void setSuspended(Suspension, bool) override {}
    void layout() override { ++layouts; }
    void tearDown() override;
    bool isPlaying() const override { return playing; }
    long loopCount() const override { return 0; }
    long framesDisplayed() const override { return frames; }

    Size bounds;
    bool pixelPerfect = false;
    bool fillsView = false;
    bool playing = false;
    long frames = 0;
    int layouts = 0;
    std::string worldID;

private:
    std::vector<std::string>& journal_;
    int& live_;
};

class RecordingSceneViewFactory final : public SceneViewFactory {
public:
    std::unique_ptr<SceneView> makeSceneView(Size bounds) override;
    int liveSceneViews() const override { return live; }
    int liveVideoSources() const override { return 0; }

    std::vector<std::string> journal; // "make", "load calm", "play", "tearDown", ...
    RecordingSceneView* last = nullptr;
    int live = 0;
};

class FakeHost final : public ScreenSaverHost {
public:
    bool preview = false;
    Size size{1920, 1080};
    std::optional<WindowInfo> windowInfo;
    std::vector<ScreenInfo> screenList;
    bool animating = false;
    double interval = 0;
    bool black = false;
    SceneView* subview = nullptr;
    int superStops = 0;

    bool isPreview() const override { return preview; }
    Size bounds() const override { return size; }
    std::optional<WindowInfo> window() const override { return windowInfo; }
    std::vector<ScreenInfo> screens() const override { return screenList; }
    void superStartAnimation() override { animating = true; }
    void superStopAnimation() override
    {
        animating = false;
        ++superStops;
    }
    bool isAnimating() const override { return animating; }
    void setAnimationTimeInterval(double seconds) override { interval = seconds; }
    void makeBackingLayerBlack() override { black = true; }
    void addSceneView(SceneView& view) override { subview = &view; }
    void removeSceneView(SceneView& view) override
    {
        if (subview == &view)
            subview = nullptr;
    }

    // A full-screen window on screens[index] of the list.
    static FakeHost onScreen(const std::vector<ScreenInfo>& screens, std::size_t index);
};

} // namespace hushmeadows::testing
