#pragma once

#include "HushmeadowsSaver/AudioArbiter.h"
#include "HushmeadowsSaver/NotificationCenter.h"
#include "HushmeadowsSaver/ScreenSaverHost.h"
#include "HushmeadowsSaver/SystemSession.h"
#include "SceneCore/Picture/SceneView.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

// Test doubles at the screen saver's ports: they make platform events
// deterministic and record every call the view makes.
namespace hushmeadows::testing {

class FakeNotificationCenter final : public NotificationCenter {
public:
    void post(const Notification& notification) override { posted.push_back(notification); }
    std::vector<Notification> posted;
};

class FakeProcess final : public WatchedProcess {
public:
    bool terminated = false;
    bool isTerminated() const override { return terminated; }
};

class FakeSession final : public SystemSession {
public:
    std::vector<EngineProcess> engines;
    std::optional<bool> locked;
    double idle = 0;

    std::vector<EngineProcess> engineProcesses() const override { return engines; }
    std::optional<bool> screenIsLocked() const override { return locked; }
    double idleSeconds() const override { return idle; }

    // Adds a running screen saver engine and returns it.
    std::shared_ptr<FakeProcess> launchEngine(std::optional<double> launchDate = 1.0)
    {
        auto process = std::make_shared<FakeProcess>();
        engines.push_back(EngineProcess{process, launchDate});
        return process;
    }
};

struct AudioCall {
    std::string kind; // "acquire" or "release"
    const void* client;
    bool immediately = false;
};

class RecordingAudioArbiter final : public AudioArbiter {
public:
    std::vector<AudioCall> calls;
    std::vector<const void*> clients;

    void acquire(const void* client, const WorldPackage&, const HushmeadowsSettings&) override
    {
        calls.push_back({"acquire", client, false});
        if (std::ranges::find(clients, client) == clients.end())
            clients.push_back(client);
    }
    void release(const void* client, bool immediately) override
    {
        calls.push_back({"release", client, immediately});
        std::erase(clients, client);
    }
    Diagnostics diagnostics(const void* client) const override
    {
        Diagnostics d;
        d.clients = static_cast<int>(clients.size());
        d.ownsAudio = std::ranges::find(clients, client) != clients.end();
        d.state = clients.empty() ? "idle" : "playing";
        return d;
    }
};

// Journals what the view is asked to do ("load calm loop.mp4", "play", "tearDown").
class RecordingSceneView final : public SceneView {
public:
    RecordingSceneView(std::vector<std::string>& journal, int& live) : journal_(journal), live_(live) { ++live_; }
    ~RecordingSceneView() override { --live_; }

    void setPixelPerfect(bool value) override { pixelPerfect = value; }
    void setFillsView(bool value) override { fillsView = value; }
    void load(const WorldPackage& world) override { journal_.push_back("load " + world.id() + " " + world.manifest().visual.file); }
    void play() override { journal_.push_back("play"); }
    void pumpFrame() override { ++frames; }
    void setSuspended(Suspension, bool) override {}
    void layout() override {}
    void tearDown() override { journal_.push_back("tearDown"); }
    bool isPlaying() const override { return false; }
    long loopCount() const override { return 0; }
    long framesDisplayed() const override { return frames; }
    FrameLateness::Summary frameLateness() const override { return lateness; }

    bool pixelPerfect = false;
    bool fillsView = false;
    long frames = 0;
    FrameLateness::Summary lateness;

private:
    std::vector<std::string>& journal_;
    int& live_;
};

class RecordingSceneViewFactory final : public SceneViewFactory {
public:
    std::unique_ptr<SceneView> makeSceneView(Size) override
    {
        auto view = std::make_unique<RecordingSceneView>(journal, live);
        last = view.get();
        return view;
    }
    int liveSceneViews() const override { return live; }
    int liveVideoSources() const override { return 0; }

    std::vector<std::string> journal;
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
    SceneView* subview = nullptr;

    bool isPreview() const override { return preview; }
    Size bounds() const override { return size; }
    std::optional<WindowInfo> window() const override { return windowInfo; }
    std::vector<ScreenInfo> screens() const override { return screenList; }
    void superStartAnimation() override { animating = true; }
    void superStopAnimation() override { animating = false; }
    bool isAnimating() const override { return animating; }
    void setAnimationTimeInterval(double) override {}
    void makeBackingLayerBlack() override {}
    void addSceneView(SceneView& view) override { subview = &view; }
    void removeSceneView(SceneView& view) override { subview = subview == &view ? nullptr : subview; }

    // A full-screen window on screens[index] of the list.
    static FakeHost onScreen(const std::vector<ScreenInfo>& screens, std::size_t index)
    {
        FakeHost host;
        host.screenList = screens;
        host.size = screens[index].frame.size;
        host.windowInfo = WindowInfo{screens[index].frame, 1000, screens[index]};
        return host;
    }
};

} // namespace hushmeadows::testing
