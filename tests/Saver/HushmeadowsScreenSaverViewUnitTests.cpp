#include "HushmeadowsSaver/CompanionAnnouncement.h"
#include "HushmeadowsSaver/HushmeadowsScreenSaverView.h"
#include "SceneCore/Runtime/ManualRunLoop.h"
#include "tests/support/FakeSaverPlatform.h"
#include "tests/support/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>

namespace hushmeadows {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using View = HushmeadowsScreenSaverView;

WorldPackage makeWorld(const std::string& id)
{
    WorldManifest manifest;
    manifest.id = id;
    manifest.name = id;
    manifest.visual.file = "loop.mp4";
    manifest.timeOfDay = DayPhase::day;
    WorldManifest::Version night;
    night.visual.file = "night.mp4";
    manifest.versions.emplace(DayPhase::night, night);
    return WorldPackage("/worlds/" + id + ".hushmeadow", manifest, {});
}

const std::vector<ScreenInfo> twoScreens{ScreenInfo{Rect{{0, 0}, {1920, 1080}}}, ScreenInfo{Rect{{1920, 0}, {2560, 1440}}}};

class SaverTest : public ::testing::Test {
protected:
    ManualRunLoop loop;
    testing::FakeNotificationCenter center;
    testing::FakeSession session;
    testing::RecordingAudioArbiter audio;
    testing::RecordingSceneViewFactory scenes;
    int connections = 0;
    ActivationMonitor activation{[this](ActivationMonitor&) { ++connections; }};
    HushmeadowsSettings settings;
    std::optional<std::string> worldID = "calm";
    int settingsLoads = 0;
    std::uint32_t nextRandom = 1'295; // "zz" in base 36
    testing::LogCapture log;

    SaverServices services{
        .mainLoop = loop,
        .distributedCenter = center,
        .session = session,
        .audio = audio,
        .scenes = scenes,
        .activation = activation,
        .loadSettings = [this] {
            ++settingsLoads;
            return settings;
        },
        .chooseWorld = [this](const HushmeadowsSettings& s) {
            WorldChoice choice;
            if (worldID) {
                choice.world = makeWorld(s.selectedWorldID.value_or(*worldID));
                choice.source = "fallback";
            }
            return choice;
        },
        .shortVersion = "1.4",
        .buildVersion = "27",
        .randomNumber = [this] { return nextRandom++; },
        .now = [] { return std::chrono::sys_days{std::chrono::year{2026} / 6 / 1} + std::chrono::hours{12}; },
        .calendar = Calendar::fixedOffset(std::chrono::seconds{0}),
    };

    void realActivation() { activation.screenSaverDidStart(false); }
    int didStarts() const { return static_cast<int>(std::ranges::count(center.posted, std::string(View::didStartNotification), &Notification::name)); }
    int acquires() const { return static_cast<int>(std::ranges::count(audio.calls, std::string("acquire"), &testing::AudioCall::kind)); }
    std::vector<std::string> saverLines() const { return log.lines("saver"); }
};

// What a run says: its creation line and the companion announcement (the
// activation monitor connected once), why it starts as it does, and how many
// frames it showed after 5 s.
TEST_F(SaverTest, ARunAnnouncesAndLogsItself)
{
    settings.screenSaverAudioEnabled = true;
    testing::FakeHost host = testing::FakeHost::onScreen(twoScreens, 0);
    View view(host, services);
    EXPECT_EQ(view.instanceID(), "zz");
    EXPECT_THAT(saverLines(), ElementsAre("[zz] init preview=false size=1920x1080 world=calm"));
    ASSERT_EQ(center.posted.size(), 1u);
    EXPECT_EQ(center.posted[0].name, "app.hushmeadows.screensaver.present");
    EXPECT_EQ(center.posted[0].object, "1.4 (27)");
    View other(host, services);
    EXPECT_EQ(connections, 1);

    session.idle = 54.9;
    view.startAnimation();
    EXPECT_THAT(saverLines(), Contains("[zz] activation state=unknown engine=false locked=false idle=54s"));
    realActivation();
    EXPECT_THAT(saverLines(), Contains("didstart runFromPref=false"));
    view.startAnimation();
    EXPECT_THAT(saverLines(), Contains(HasSubstr("[zz] start world=calm worlds=fallback preview=false real=true mainDisplay=true "
                                                 "allDisplays=false role=display audioOptIn=true muted=false audioAllowed=true")));
    for (int i = 0; i < 10; ++i)
        view.animateOneFrame();
    ASSERT_NE(scenes.last, nullptr);
    scenes.last->lateness = {10, 3, 0.0012, 0.008, 0.0405};
    loop.advance(4.9);
    EXPECT_THAT(saverLines(), ::testing::Not(Contains(HasSubstr("frames after"))));
    loop.advance(0.1);
    EXPECT_THAT(saverLines(), Contains("[zz] frames after 5 s: 10 role=display"));
    EXPECT_THAT(saverLines(), Contains("[zz] frame lateness after 5 s: p50=1.2 ms p99=8.0 ms max=40.5 ms skipped=3"));
}

TEST_F(SaverTest, NoWorldIsLoggedAndStaysBlack)
{
    worldID.reset();
    testing::FakeHost host = testing::FakeHost::onScreen(twoScreens, 0);
    View view(host, services);
    realActivation();
    EXPECT_THAT(log.lines("saver"), Contains("[zz] No valid world package in the screen saver bundle"));
    settings.screenSaverAudioEnabled = true;
    view.startAnimation();
    EXPECT_EQ(view.sceneView(), nullptr);
    EXPECT_EQ(acquires(), 0);
}

struct RoleCase {
    const char* name;
    bool preview = false;
    std::size_t screen = 0; // npos: no window
    std::optional<bool> didStartFromPreferences = std::nullopt;
    bool didStop = false;
    bool engine = false;
    std::optional<bool> locked = std::nullopt;
    double idle = 0;
    bool allDisplays = false;
    bool muted = false;
    View::Role role;
    bool sound;
};

constexpr std::size_t noWindow = std::size_t(-1);

TEST_F(SaverTest, RoleAndSoundFollowActivationDisplayAndSettings)
{
    const RoleCase cases[] = {
        {.name = "real, first screen", .didStartFromPreferences = false, .role = View::Role::display, .sound = true},
        {.name = "real, second screen", .screen = 1, .didStartFromPreferences = false, .role = View::Role::dark, .sound = false},
        {.name = "real, no window", .screen = noWindow, .didStartFromPreferences = false, .role = View::Role::dark, .sound = false},
        {.name = "real, second screen, all displays", .screen = 1, .didStartFromPreferences = false, .allDisplays = true,
         .role = View::Role::display, .sound = true},
        {.name = "real, muted", .didStartFromPreferences = false, .muted = true, .role = View::Role::display, .sound = false},
        {.name = "preview host", .preview = true, .didStartFromPreferences = false, .engine = true, .locked = true, .idle = 600,
         .allDisplays = true, .role = View::Role::preview, .sound = false},
        {.name = "started from the settings", .didStartFromPreferences = true, .engine = true, .role = View::Role::preview, .sound = false},
        {.name = "stopped", .didStartFromPreferences = false, .didStop = true, .engine = true, .role = View::Role::preview, .sound = false},
        {.name = "unknown, idle 54.9 s", .idle = 54.9, .role = View::Role::preview, .sound = false},
        {.name = "unknown, idle 55 s", .idle = 55.0, .role = View::Role::display, .sound = true},
        {.name = "unknown, locked", .locked = true, .role = View::Role::display, .sound = true},
        {.name = "unknown, engine running", .engine = true, .role = View::Role::display, .sound = true},
    };
    for (const RoleCase& c : cases) {
        SCOPED_TRACE(c.name);
        audio.calls.clear();
        center.posted.clear();
        activation = ActivationMonitor{};
        if (c.didStartFromPreferences)
            activation.screenSaverDidStart(*c.didStartFromPreferences);
        if (c.didStop)
            activation.screenSaverDidStop();
        session.engines.clear();
        if (c.engine)
            session.launchEngine();
        session.locked = c.locked;
        session.idle = c.idle;
        settings.screenSaverAudioEnabled = true;
        settings.screenSaverAllDisplays = c.allDisplays;
        settings.isMuted = c.muted;
        testing::FakeHost host = c.screen == noWindow ? testing::FakeHost{} : testing::FakeHost::onScreen(twoScreens, c.screen);
        host.preview = c.preview;
        View view(host, services);
        view.startAnimation();
        bool real = c.role != View::Role::preview;
        EXPECT_EQ(view.role(), c.role);
        EXPECT_EQ(view.sceneView() != nullptr, c.role != View::Role::dark);
        EXPECT_EQ(host.subview, view.sceneView());
        EXPECT_EQ(acquires(), c.sound ? 1 : 0);
        EXPECT_EQ(didStarts(), real ? 1 : 0);
        // Only a view that shows the world keeps asking for frames.
        view.animateOneFrame();
        EXPECT_EQ(host.animating, c.role == View::Role::display || c.role == View::Role::preview);
    }
}

// Every way a run ends, one after another on one view: back to idle with the
// scene view gone and no more frames, the sound cut or (on a host's stop)
// faded. Each start watches the engine launched last.
TEST_F(SaverTest, EveryEndReturnsToIdleAndReleasesTheSound)
{
    using End = std::function<void(View&, testing::FakeHost&, testing::FakeProcess&)>;
    const struct {
        const char* name;
        End end;
        bool immediately;
        std::string logged;
    } ends[] = {
        {"engine ended, seen at the 24th frame", [](View& v, auto&, testing::FakeProcess& engine) {
             for (int i = 0; i < 22; ++i)
                 v.animateOneFrame();
             engine.terminated = true;
             v.animateOneFrame();
             EXPECT_EQ(v.role(), View::Role::display);
             v.animateOneFrame();
             EXPECT_EQ(v.role(), View::Role::idle);
         }, true, "[zz] screen saver engine ended without willstop; stopping"},
        {"will stop", [](View& v, auto&, auto&) { v.screenSaverWillStop(); }, true, "[zz] willstop"},
        {"host stops", [](View& v, auto&, auto&) { v.stopAnimation(); }, false, "[zz] stop"},
        {"window left", [](View& v, testing::FakeHost& h, auto&) {
             h.windowInfo.reset();
             v.viewDidMoveToWindow();
         }, true, ""},
        {"a later engine ended", [](View& v, auto&, testing::FakeProcess& engine) {
             engine.terminated = true;
             for (int i = 0; i < 23; ++i)
                 v.animateOneFrame();
         }, true, "[zz] screen saver engine ended without willstop; stopping"},
    };
    settings.screenSaverAudioEnabled = true;
    testing::FakeHost host;
    View view(host, services);
    realActivation();
    double launched = 0;
    for (const auto& c : ends) {
        SCOPED_TRACE(c.name);
        host = testing::FakeHost::onScreen(twoScreens, 0);
        auto engine = session.launchEngine(++launched);
        view.startAnimation();
        ASSERT_EQ(view.role(), View::Role::display);
        log.clear();
        c.end(view, host, *engine);
        view.animateOneFrame();
        EXPECT_EQ(view.role(), View::Role::idle);
        EXPECT_EQ(view.sceneView(), nullptr);
        EXPECT_EQ(scenes.journal.back(), "tearDown");
        EXPECT_FALSE(host.animating);
        EXPECT_TRUE(audio.calls.back().kind == "release" && audio.calls.back().immediately == c.immediately);
        if (!c.logged.empty()) {
            EXPECT_THAT(saverLines(), Contains(c.logged));
        }
    }

    // A view that goes away cuts its sound and leaves no scene view behind.
    std::optional<View> gone(std::in_place, host, services);
    gone->startAnimation();
    EXPECT_TRUE(std::get<bool>(gone->hushmeadowsDiagnostics().at("ownsAudio")));
    const void* identity = &*gone;
    gone.reset();
    EXPECT_TRUE(audio.calls.back().kind == "release" && audio.calls.back().immediately);
    EXPECT_EQ(audio.calls.back().client, identity);
    EXPECT_EQ(scenes.live, 0);
}

TEST_F(SaverTest, ANewStartRereadsSettingsAndWorld)
{
    testing::FakeHost host = testing::FakeHost::onScreen(twoScreens, 0);
    View view(host, services);
    realActivation();
    view.startAnimation();
    EXPECT_EQ(settingsLoads, 2);
    view.stopAnimation();

    settings.selectedWorldID = "forest";
    settings.timeOfDay = TimeOfDay::night;
    settings.pixelPerfectScaling = false;
    settings.framing = Framing::wholeScene;
    view.startAnimation();
    EXPECT_EQ(settingsLoads, 3);
    ASSERT_NE(scenes.last, nullptr);
    EXPECT_FALSE(scenes.last->pixelPerfect);
    EXPECT_FALSE(scenes.last->fillsView);
    EXPECT_EQ(scenes.journal.back(), "play");
    EXPECT_EQ(scenes.journal[scenes.journal.size() - 2], "load forest night.mp4");
}

TEST_F(SaverTest, AWindowWithoutAScreenIsMatchedByFrameThenBySize)
{
    // Screens in global coordinates; window origins measured from the top of the first screen.
    const std::vector<ScreenInfo> stacked{{Rect{{0, 0}, {1920, 1080}}}, {Rect{{0, 1080}, {1920, 1080}}}};
    const std::vector<ScreenInfo> mixed{{Rect{{0, 0}, {1920, 1080}}}, {Rect{{1920, 0}, {1280, 800}}}};
    const struct {
        const std::vector<ScreenInfo>& screens;
        Rect window;
        View::Role role;
    } cases[] = {
        {stacked, Rect{{0, -1080}, {1920, 1080}}, View::Role::dark}, // the upper screen, by frame
        {stacked, Rect{{0, 0}, {1920, 1080}}, View::Role::display},
        {stacked, Rect{{5, 5}, {1920, 1080}}, View::Role::display}, // no match, two of that size: the main display
        {mixed, Rect{{7, 7}, {1280, 800}}, View::Role::dark},       // the one screen of that size
    };
    testing::FakeHost host;
    View view(host, services);
    realActivation();
    for (const auto& c : cases) {
        host.screenList = c.screens;
        host.windowInfo = WindowInfo{c.window, 0, std::nullopt};
        view.startAnimation();
        EXPECT_EQ(view.role(), c.role);
    }
}

TEST_F(SaverTest, TheLatestLiveEngineIsTheOneWatched)
{
    auto old = session.launchEngine(1.0);
    auto newest = session.launchEngine(5.0);
    auto undated = session.launchEngine(std::nullopt);
    EXPECT_EQ(View::runningEngine(services), newest);
    newest->terminated = true;
    EXPECT_EQ(View::runningEngine(services), old);
    old->terminated = true;
    EXPECT_EQ(View::runningEngine(services), undated);
    undated->terminated = true;
    EXPECT_EQ(View::runningEngine(services), nullptr);
}

TEST(CompanionAnnouncement, VersionsCompareNumberByNumber)
{
    using Version = CompanionAnnouncement::Version;
    EXPECT_TRUE(Version("1.0") == Version("1.0.0"));
    EXPECT_TRUE(Version("0.9.9 (100)") < Version("1.0"));
    EXPECT_TRUE(Version("1.9") < Version("1.10"));
    EXPECT_EQ(CompanionAnnouncement::versionText("2.1", std::nullopt), "2.1 (0)");
}

} // namespace
} // namespace hushmeadows
