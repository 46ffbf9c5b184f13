#include "HushmeadowsSaver/CompanionAnnouncement.h"
#include "HushmeadowsSaver/HushmeadowsScreenSaverView.h"
#include "SceneCore/Runtime/ManualRunLoop.h"
#include "tests/support/FakeSaverPlatform.h"
#include "tests/support/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
    ActivationMonitor activation;
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
        .bundleInfo = {{"CFBundleShortVersionString", "1.4"}, {"CFBundleVersion", "27"}},
        .randomNumber = [this] { return nextRandom++; },
        .now = [] { return std::chrono::sys_days{std::chrono::year{2026} / 6 / 1} + std::chrono::hours{12}; },
        .calendar = Calendar::fixedOffset(std::chrono::seconds{0}),
    };

    void realActivation() { center.post(Notification{ActivationMonitor::didStartName, std::nullopt, {{"runFromPref", false}}}); }

    int acquires() const
    {
        return static_cast<int>(std::count_if(audio.calls.begin(), audio.calls.end(), [](const auto& c) { return c.kind == "acquire"; }));
    }
    std::vector<std::string> saverLines() const { return log.lines("saver"); }
};

TEST_F(SaverTest, CreationLoadsChoosesAnnouncesAndObserves)
{
    testing::FakeHost host = testing::FakeHost::onScreen(twoScreens, 0);
    View view(host, services);
    EXPECT_EQ(view.instanceID(), "zz");
    EXPECT_EQ(view.role(), View::Role::idle);
    EXPECT_EQ(host.interval, 1.0 / 48.0);
    EXPECT_TRUE(host.black);
    EXPECT_EQ(settingsLoads, 1);
    ASSERT_TRUE(view.world());
    EXPECT_EQ(view.world()->id(), "calm");
    EXPECT_THAT(saverLines(), ElementsAre("[zz] init preview=false size=1920x1080 world=calm"));
    ASSERT_EQ(center.posted.size(), 1u);
    EXPECT_EQ(center.posted[0].name, "app.hushmeadows.screensaver.present");
    EXPECT_EQ(center.posted[0].object, "1.4 (27)");
    EXPECT_EQ(center.observerCount(View::willStopNotification), 1);
    EXPECT_EQ(center.observerCount(ActivationMonitor::didStartName), 1);
    EXPECT_FALSE(view.hasConfigureSheet());
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

TEST_F(SaverTest, TwoDisplaysOneShowsTheOtherStaysDark)
{
    settings.screenSaverAudioEnabled = true;
    testing::FakeHost first = testing::FakeHost::onScreen(twoScreens, 0);
    testing::FakeHost second = testing::FakeHost::onScreen(twoScreens, 1);
    View a(first, services);
    View b(second, services);
    realActivation();
    a.startAnimation();
    b.startAnimation();

    EXPECT_EQ(a.role(), View::Role::display);
    ASSERT_NE(a.sceneView(), nullptr);
    EXPECT_EQ(first.subview, a.sceneView());
    EXPECT_EQ(b.role(), View::Role::dark);
    EXPECT_EQ(b.sceneView(), nullptr);
    ASSERT_EQ(acquires(), 1);
    EXPECT_EQ(audio.calls[0].client, &a);
    EXPECT_EQ(std::count_if(center.posted.begin(), center.posted.end(), [](const auto& n) { return n.name == View::didStartNotification; }), 2);

    // The dark display asks for no more frames.
    b.animateOneFrame();
    EXPECT_FALSE(second.animating);
    EXPECT_EQ(second.superStops, 1);
    a.animateOneFrame();
    EXPECT_TRUE(first.animating);
    EXPECT_THAT(saverLines(), Contains(HasSubstr("[zz] start world=calm worlds=fallback preview=false real=true mainDisplay=true "
                                                 "allDisplays=false role=display audioOptIn=true muted=false audioAllowed=true")));
    EXPECT_THAT(saverLines(), Contains(HasSubstr("[100] start world=calm worlds=fallback preview=false real=true mainDisplay=false "
                                                 "allDisplays=false role=dark audioOptIn=true muted=false audioAllowed=false")));
}

TEST_F(SaverTest, AllDisplaysShowsEverywhereAndEveryDisplayClaimsSound)
{
    settings.screenSaverAudioEnabled = true;
    settings.screenSaverAllDisplays = true;
    testing::FakeHost first = testing::FakeHost::onScreen(twoScreens, 0);
    testing::FakeHost second = testing::FakeHost::onScreen(twoScreens, 1);
    View a(first, services);
    View b(second, services);
    realActivation();
    a.startAnimation();
    b.startAnimation();
    EXPECT_EQ(a.role(), View::Role::display);
    EXPECT_EQ(b.role(), View::Role::display);
    EXPECT_NE(b.sceneView(), nullptr);
    EXPECT_EQ(acquires(), 2);
    EXPECT_EQ(audio.clients.size(), 2u);
}

TEST_F(SaverTest, APreviewNeverSoundsAndNeverPostsDidStart)
{
    settings.screenSaverAudioEnabled = true;
    settings.screenSaverAllDisplays = true;
    testing::FakeHost host = testing::FakeHost::onScreen(twoScreens, 0);
    host.preview = true;
    session.launchEngine();
    session.locked = true;
    View view(host, services);
    realActivation();
    view.startAnimation();
    EXPECT_EQ(view.role(), View::Role::preview);
    EXPECT_NE(view.sceneView(), nullptr);
    EXPECT_EQ(acquires(), 0);
    for (const auto& n : center.posted)
        EXPECT_NE(n.name, View::didStartNotification);
}

TEST_F(SaverTest, UnknownStateIsRealFrom55SecondsOfIdleTime)
{
    testing::FakeHost host = testing::FakeHost::onScreen(twoScreens, 0);
    View view(host, services);
    session.idle = 54.9;
    view.startAnimation();
    EXPECT_EQ(view.role(), View::Role::preview);
    EXPECT_THAT(saverLines(), Contains("[zz] activation state=unknown engine=false locked=false idle=54s"));

    session.idle = 55.0;
    view.startAnimation();
    EXPECT_EQ(view.role(), View::Role::display);

    session.idle = 0;
    session.locked = true;
    view.startAnimation();
    EXPECT_EQ(view.role(), View::Role::display);

    session.locked.reset();
    center.post(Notification{ActivationMonitor::didStartName, std::nullopt, {{"runFromPref", true}}});
    session.launchEngine();
    view.startAnimation();
    EXPECT_EQ(view.role(), View::Role::preview);
    center.post(Notification{ActivationMonitor::didStopName, std::nullopt, {}});
    view.startAnimation();
    EXPECT_EQ(view.role(), View::Role::preview);
}

TEST_F(SaverTest, EngineIsCheckedEvery24thFrame)
{
    settings.screenSaverAudioEnabled = true;
    auto engine = session.launchEngine();
    testing::FakeHost host = testing::FakeHost::onScreen(twoScreens, 0);
    View view(host, services);
    realActivation();
    view.startAnimation();
    for (int i = 0; i < 22; ++i)
        view.animateOneFrame();
    engine->terminated = true;
    view.animateOneFrame(); // 23
    EXPECT_EQ(view.role(), View::Role::display);
    view.animateOneFrame(); // 24
    EXPECT_EQ(view.role(), View::Role::idle);
    EXPECT_EQ(view.sceneView(), nullptr);
    EXPECT_FALSE(host.animating);
    EXPECT_TRUE(audio.calls.back().kind == "release" && audio.calls.back().immediately);
    EXPECT_THAT(saverLines(), Contains("[zz] screen saver engine ended without willstop; stopping"));

    // A new start finds the engine gone: 25 passes, 48 is the next check.
    engine = session.launchEngine(2.0);
    view.startAnimation();
    view.animateOneFrame(); // 25
    engine->terminated = true;
    for (int i = 26; i < 48; ++i)
        view.animateOneFrame();
    EXPECT_EQ(view.role(), View::Role::display);
    view.animateOneFrame(); // 48
    EXPECT_EQ(view.role(), View::Role::idle);
}

TEST_F(SaverTest, WillStopCutsAndStopAnimationFades)
{
    settings.screenSaverAudioEnabled = true;
    testing::FakeHost host = testing::FakeHost::onScreen(twoScreens, 0);
    View view(host, services);
    realActivation();
    view.startAnimation();
    ASSERT_EQ(acquires(), 1);

    center.post(Notification{View::willStopNotification, std::nullopt, {}});
    EXPECT_EQ(view.role(), View::Role::idle);
    EXPECT_EQ(view.sceneView(), nullptr);
    EXPECT_EQ(scenes.journal.back(), "tearDown");
    EXPECT_EQ(audio.calls.back().kind, "release");
    EXPECT_TRUE(audio.calls.back().immediately);
    EXPECT_THAT(saverLines(), Contains("[zz] willstop"));

    view.startAnimation();
    view.stopAnimation();
    EXPECT_FALSE(host.animating);
    EXPECT_FALSE(audio.calls.back().immediately);
    EXPECT_THAT(saverLines(), Contains("[zz] stop"));

    // Leaving the window cuts too.
    view.startAnimation();
    host.windowInfo.reset();
    view.viewDidMoveToWindow();
    EXPECT_TRUE(audio.calls.back().immediately);
    EXPECT_EQ(view.role(), View::Role::idle);
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
    ASSERT_TRUE(view.world());
    EXPECT_EQ(view.world()->id(), "forest");
    EXPECT_EQ(view.world()->manifest().visual.file, "night.mp4");
    ASSERT_NE(scenes.last, nullptr);
    EXPECT_FALSE(scenes.last->pixelPerfect);
    EXPECT_FALSE(scenes.last->fillsView);
    EXPECT_EQ(scenes.journal.back(), "play");
    EXPECT_EQ(scenes.journal[scenes.journal.size() - 2], "load forest night.mp4");
}

TEST_F(SaverTest, FrameReportAfterFiveSecondsUnlessStopped)
{
    testing::FakeHost host = testing::FakeHost::onScreen(twoScreens, 0);
    View view(host, services);
    realActivation();
    view.startAnimation();
    for (int i = 0; i < 10; ++i)
        view.animateOneFrame();
    loop.advance(4.9);
    EXPECT_THAT(saverLines(), ::testing::Not(Contains(HasSubstr("frames after"))));
    loop.advance(0.1);
    EXPECT_THAT(saverLines(), Contains("[zz] frames after 5 s: 10 role=display"));

    log.clear();
    view.startAnimation();
    view.stopAnimation();
    loop.advance(10);
    EXPECT_THAT(saverLines(), ::testing::Not(Contains(HasSubstr("frames after"))));
}

TEST_F(SaverTest, ScreenMatchingWhenTheWindowHasNoScreen)
{
    // Screens in global coordinates; the second sits above the first.
    std::vector<ScreenInfo> screens{ScreenInfo{Rect{{0, 0}, {1920, 1080}}}, ScreenInfo{Rect{{0, 1080}, {1920, 1080}}}};
    testing::FakeHost host;
    host.screenList = screens;
    // Window origin measured from the top of the first screen: the upper screen is at y = -1080.
    host.windowInfo = WindowInfo{Rect{{0, -1080}, {1920, 1080}}, 0, std::nullopt};
    View upper(host, services);
    realActivation();
    upper.startAnimation();
    EXPECT_EQ(upper.role(), View::Role::dark);

    host.windowInfo = WindowInfo{Rect{{0, 0}, {1920, 1080}}, 0, std::nullopt};
    upper.startAnimation();
    EXPECT_EQ(upper.role(), View::Role::display);

    // No frame match and two screens of that size: taken as the main display.
    host.windowInfo = WindowInfo{Rect{{5, 5}, {1920, 1080}}, 0, std::nullopt};
    upper.startAnimation();
    EXPECT_EQ(upper.role(), View::Role::display);

    // Exactly one screen of the window's size decides.
    host.screenList = {ScreenInfo{Rect{{0, 0}, {1920, 1080}}}, ScreenInfo{Rect{{1920, 0}, {1280, 800}}}};
    host.windowInfo = WindowInfo{Rect{{7, 7}, {1280, 800}}, 0, std::nullopt};
    upper.startAnimation();
    EXPECT_EQ(upper.role(), View::Role::dark);

    // No window at all: dark.
    host.windowInfo.reset();
    upper.startAnimation();
    EXPECT_EQ(upper.role(), View::Role::dark);
}

TEST_F(SaverTest, GeometryLine)
{
    testing::FakeHost host = testing::FakeHost::onScreen(twoScreens, 1);
    View view(host, services);
    view.startAnimation();
    EXPECT_THAT(saverLines(), Contains("[zz] geometry bounds=2560x1440 window={{1920, 0}, {2560, 1440}} level=1000 "
                                       "windowScreen={{1920, 0}, {2560, 1440}} screens=[0,0 1920x1080 | 1920,0 2560x1440]"));
    host.windowInfo.reset();
    view.startAnimation();
    EXPECT_THAT(saverLines(), Contains(HasSubstr("window=nil windowScreen=nil screens=")));
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

TEST_F(SaverTest, DestructionStopsObservingAndReleasesAtOnce)
{
    settings.screenSaverAudioEnabled = true;
    testing::FakeHost host = testing::FakeHost::onScreen(twoScreens, 0);
    const void* identity = nullptr;
    {
        View view(host, services);
        identity = &view;
        realActivation();
        view.startAnimation();
        auto diagnostics = view.hushmeadowsDiagnostics();
        EXPECT_EQ(std::get<std::string>(diagnostics.at("role")), "display");
        EXPECT_EQ(std::get<bool>(diagnostics.at("ownsAudio")), true);
        EXPECT_EQ(std::get<long>(diagnostics.at("liveSceneViews")), 1);
        EXPECT_EQ(diagnostics.size(), 18u);
    }
    EXPECT_EQ(center.observerCount(View::willStopNotification), 0);
    EXPECT_EQ(audio.calls.back().kind, "release");
    EXPECT_EQ(audio.calls.back().client, identity);
    EXPECT_TRUE(audio.calls.back().immediately);
    EXPECT_EQ(scenes.live, 0);
    // A will-stop after destruction reaches nobody.
    center.post(Notification{View::willStopNotification, std::nullopt, {}});
}

TEST(ActivationMonitor, FollowsTheSystemsNotifications)
{
    testing::FakeNotificationCenter center;
    ActivationMonitor monitor;
    testing::LogCapture log;
    monitor.install(center);
    monitor.install(center);
    EXPECT_EQ(center.observerCount(ActivationMonitor::didStartName), 1);
    EXPECT_EQ(center.observerCount(ActivationMonitor::didStopName), 1);
    EXPECT_EQ(monitor.state(), ActivationMonitor::State::unknown());

    center.post(Notification{ActivationMonitor::didStartName, std::nullopt, {}});
    EXPECT_EQ(monitor.state(), ActivationMonitor::State::running(false));
    center.post(Notification{ActivationMonitor::didStartName, std::nullopt, {{"runFromPref", std::int64_t{1}}}});
    EXPECT_EQ(monitor.state(), ActivationMonitor::State::running(false));
    center.post(Notification{ActivationMonitor::didStopName, std::nullopt, {}});
    EXPECT_EQ(monitor.state(), ActivationMonitor::State::stopped());
    center.post(Notification{ActivationMonitor::didStartName, std::nullopt, {{"runFromPref", true}}});
    EXPECT_EQ(monitor.state(), ActivationMonitor::State::running(true));
    EXPECT_EQ(monitor.state().description(), "running(fromPreferences: true)");
    EXPECT_THAT(log.lines("saver"), ElementsAre("didstart runFromPref=false", "didstart runFromPref=false", "didstart runFromPref=true"));
}

TEST(CompanionAnnouncement, VersionsCompareNumberByNumber)
{
    using Version = CompanionAnnouncement::Version;
    EXPECT_EQ(Version("1.4 (27)").label(), "1.4");
    EXPECT_TRUE(Version("1.0") == CompanionAnnouncement::minimumVersion());
    EXPECT_TRUE(Version("0.9.9 (100)") < CompanionAnnouncement::minimumVersion());
    EXPECT_TRUE(CompanionAnnouncement::minimumVersion() < Version("1.0.1"));
    EXPECT_TRUE(Version("1.9") < Version("1.10"));
    EXPECT_EQ(CompanionAnnouncement::versionText({}), "0 (0)");
    EXPECT_EQ(CompanionAnnouncement::versionText({{"CFBundleShortVersionString", "2.1"}, {"CFBundleVersion", "40"}}), "2.1 (40)");
}

TEST(ScreenSaverView, InstanceIdentifiersAreBase36)
{
    EXPECT_EQ(base36(0), "0");
    EXPECT_EQ(base36(35), "z");
    EXPECT_EQ(base36(36), "10");
    EXPECT_EQ(base36(4'294'967'295u), "1z141z3");
    View::ActivationSignals signals{ActivationMonitor::State::unknown(), true, false, 61.9};
    EXPECT_EQ(signals.description(), "state=unknown engine=true locked=false idle=61s");
}

} // namespace
} // namespace hushmeadows
