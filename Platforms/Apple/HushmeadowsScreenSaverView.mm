// The screen saver bundle's principal class: a thin ScreenSaverView subclass
// that hands every decision to the portable HushmeadowsScreenSaverView and
// gives it the platform through small adapters. Every entry from AppKit or a
// notification goes through exceptionBarrier.

#import "Platforms/Apple/ApplePaths.h"
#import "Platforms/Apple/ScopedObserver.h"

#import <AppKit/AppKit.h>
#import <QuartzCore/QuartzCore.h>
#import <ScreenSaver/ScreenSaver.h>

#include "HushmeadowsSaver/HushmeadowsScreenSaverView.h"
#include "HushmeadowsSaver/SaverRuns.h"
#include "HushmeadowsSaver/WorldChoice.h"
#include "Platforms/Apple/AppleSaverAudio.h"
#include "Platforms/Apple/AppleServices.h"
#include "Platforms/Apple/AppleVideoFile.h"
#include "Platforms/Apple/AppleWorkspaceEvents.h"
#include "Platforms/Apple/BundleClassNames.h"
#include "Platforms/Apple/CallbackCounts.h"
#include "Platforms/Apple/DisplayLinkRunLoop.h"
#include "Platforms/Apple/ExceptionBarrier.h"
#include "Platforms/Apple/LayerSceneSurface.h"
#include "Platforms/Posix/PosixFileAccess.h"
#include "SceneCore/Picture/PixelSceneViewFactory.h"
#include "SceneCore/Picture/PosterStore.h"
#include "SceneCore/Runtime/Precondition.h"
#include "SceneCore/Settings/Environment.h"
#include "SceneCore/Settings/SettingsStore.h"

#include <pwd.h>
#include <unistd.h>

#include <random>
#include <type_traits>
#include <variant>

// The principal class: its name carries the bundle's version
// (BundleClassNames.h), the same name the Info.plist gives.
@class HMW_PRINCIPAL_CLASS;
typedef HMW_PRINCIPAL_CLASS HMPrincipalView;

namespace hushmeadows {
namespace {

// The system's screen saver notifications, turned into the core's calls here.
constexpr const char* didStartName = "com.apple.screensaver.didstart";
constexpr const char* didStopName = "com.apple.screensaver.didstop";
constexpr const char* willStopName = "com.apple.screensaver.willstop";
constexpr const char* runFromPrefKey = "runFromPref";

std::optional<std::filesystem::path> realHome()
{
    if (const passwd* entry = getpwuid(getuid()); entry && entry->pw_dir)
        return std::filesystem::path(entry->pw_dir);
    return std::nullopt;
}

// Everything the process shares across its views and runs, made on first use
// on the main thread and kept for the life of the process (the host keeps
// the process between runs): its observers are added once, here.
struct SaverProcess {
    AppleMainRunLoop mainLoop;
    AppleDistributedCenter center;
    AppleSystemSession session;
    AppleMediaProbe media;
    AppleWorkspaceEvents workspace;
    SaverRuns runs{[this] { connectActivation(); }};
    std::unique_ptr<AppleSaverAudio> audio;
    std::uint64_t nextInstance = 1;

    SaverProcess()
    {
        Log::setSink(std::make_shared<AppleLogSink>());
        PosixFileAccess::install();
        Environment::install(Environment::fromProcess(realHome()));
        PosterStore::installShared(std::make_unique<PosterStore>(mainLoop, std::make_unique<AppleSerialQueue>(PosterStore::queueLabel),
                                                                 std::make_shared<AppleImageDecoder>(), media));
        audio = std::make_unique<AppleSaverAudio>(mainLoop, media, workspace);
        // One observer for the process: the run's end reaches every live view.
        center.addObserver(willStopName, [this](const std::map<std::string, bool>&) { runs.screenSaverWillStop(); });
    }

    void connectActivation()
    {
        center.addObserver(didStartName, [this](const std::map<std::string, bool>& booleans) {
            auto flag = booleans.find(runFromPrefKey);
            runs.screenSaverDidStart(flag != booleans.end() && flag->second);
        });
        center.addObserver(didStopName, [this](const std::map<std::string, bool>&) { runs.screenSaverDidStop(); });
    }

    static SaverProcess& shared()
    {
        static SaverProcess* process = new SaverProcess();
        return *process;
    }
};

// The worlds folders: the companion application's, then the bundle's own.
std::vector<WorldsFolder> worldsFolders(NSBundle* bundle)
{
    std::vector<WorldsFolder> folders;
    NSURL* app = [[NSWorkspace sharedWorkspace] URLForApplicationWithBundleIdentifier:@"app.hushmeadows"];
    if (!app) {
        NSURL* guess = [NSURL fileURLWithPath:@"/Applications/Hushmeadows.app" isDirectory:YES];
        if ([[NSFileManager defaultManager] fileExistsAtPath:guess.path])
            app = guess;
    }
    if (app) {
        NSURL* receipt = [app URLByAppendingPathComponent:@"Contents/_MASReceipt/receipt"];
        bool fromStore = [[NSFileManager defaultManager] fileExistsAtPath:receipt.path];
        if (auto worlds = filePath([app URLByAppendingPathComponent:@"Contents/Resources/Worlds"]))
            folders.push_back({*worlds, fromStore ? "appStore" : "direct"});
    }
    if (auto resources = filePath(bundle.resourceURL))
        folders.push_back({*resources / "Worlds", "fallback"});
    return folders;
}

} // namespace
} // namespace hushmeadows

@interface HMW_PRINCIPAL_CLASS : ScreenSaverView
// The superclass's own animation calls, for the portable view.
- (void)superStartAnimation;
- (void)superStopAnimation;
// For inspection and the bundle's test harness: the process's live instances
// and observers, and one instance's diagnostics.
+ (NSDictionary<NSString*, NSNumber*>*)hushmeadowsProcessDiagnostics;
- (NSDictionary<NSString*, id>*)hushmeadowsDiagnostics;
@end

namespace hushmeadows {
namespace {

// The superclass and the window system, as the portable view sees them.
class ViewHost final : public ScreenSaverHost {
public:
    ViewHost(HMPrincipalView* view, AppleWorkspaceEvents& workspace) : view_(view), workspace_(workspace) {}

    bool isPreview() const override { return view_.isPreview; }
    Size bounds() const override { return {view_.bounds.size.width, view_.bounds.size.height}; }
    std::optional<WindowInfo> window() const override
    {
        NSWindow* window = view_.window;
        if (!window)
            return std::nullopt;
        WindowInfo info;
        info.frame = rect(window.frame);
        info.level = static_cast<long>(window.level);
        if (window.screen)
            info.screen = ScreenInfo{rect(window.screen.frame)};
        return info;
    }
    std::vector<ScreenInfo> screens() const override
    {
        std::vector<ScreenInfo> list;
        for (NSScreen* screen in NSScreen.screens)
            list.push_back(ScreenInfo{rect(screen.frame)});
        return list;
    }
    void superStartAnimation() override { [view_ superStartAnimation]; }
    void superStopAnimation() override { [view_ superStopAnimation]; }
    bool isAnimating() const override { return view_.isAnimating; }
    void setAnimationTimeInterval(double seconds) override { view_.animationTimeInterval = seconds; }
    void makeBackingLayerBlack() override
    {
        HMPrincipalView* view = view_;
        view.wantsLayer = YES;
        view.layer.backgroundColor = NSColor.blackColor.CGColor;
    }
    // The surface went onto the view's layer when it was made; a new scene
    // view starts with every reason to hold still that holds now.
    void addSceneView(SceneView& scene) override
    {
        for (Suspension reason : {Suspension::noWindow, Suspension::systemSleep, Suspension::displaySleep, Suspension::occluded})
            scene.setSuspended(reason, holds(reason));
    }
    void removeSceneView(SceneView&) override {}

    bool holds(Suspension reason) const
    {
        NSWindow* window = view_.window;
        switch (reason) {
        case Suspension::noWindow: return window == nil;
        case Suspension::occluded: {
            // Only a window once seen visible counts as covered: a host that
            // shows the window's contents elsewhere may never report it
            // visible, and the picture must not hold still for that.
            bool visible = window != nil && (window.occlusionState & NSWindowOcclusionStateVisible) != 0;
            seenVisible_ = seenVisible_ || visible;
            return window != nil && seenVisible_ && !visible;
        }
        case Suspension::systemSleep:
        case Suspension::displaySleep: return workspace_.holds(reason);
        }
        return false;
    }

    // A new window has not been seen yet.
    void windowChanged() { seenVisible_ = false; }

private:
    static Rect rect(NSRect r) { return Rect{{r.origin.x, r.origin.y}, {r.size.width, r.size.height}}; }

    __weak HMPrincipalView* view_;
    AppleWorkspaceEvents& workspace_;
    mutable bool seenVisible_ = false;
};

// The C++ side of one view. Destroyed on the main thread only; the core goes
// first (it cuts the sound and drops the picture), the run loop its picture
// ran on last. Nothing here waits for a load: the video source's queue is
// detached, and what its work still holds it owns (or holds weakly).
struct ViewParts {
    SaverRuns::Instance instance = 0;
    std::unique_ptr<ViewHost> host;
    std::unique_ptr<DisplayLinkRunLoop> frameLoop;
    std::unique_ptr<PixelSceneViewFactory> scenes;
    std::unique_ptr<SaverServices> services;
    std::unique_ptr<HushmeadowsScreenSaverView> core;
    // Held while the view takes part in a run.
    std::optional<AppleWorkspaceEvents::Token> suspensions;
    std::unique_ptr<ScopedObserver> occlusion;

    ~ViewParts()
    {
        stopObserving();
        core.reset();
    }

    void stopObserving()
    {
        if (suspensions)
            SaverProcess::shared().workspace.removeSuspensionObserver(*suspensions);
        suspensions.reset();
        occlusion.reset();
    }

    void forward(Suspension reason, bool suspended)
    {
        if (SceneView* scene = core ? core->sceneView() : nullptr)
            scene->setSuspended(reason, suspended);
    }

    // The window's occlusion, for the window the view is in now.
    void observeWindow(NSWindow* window)
    {
        occlusion.reset();
        host->windowChanged();
        forward(Suspension::noWindow, window == nil);
        if (!window)
            return;
        forward(Suspension::occluded, host->holds(Suspension::occluded));
        ViewParts* parts = this;
        // Posted on the main thread, and handled there at once.
        occlusion = std::make_unique<ScopedObserver>([NSNotificationCenter defaultCenter], NSWindowDidChangeOcclusionStateNotification, window,
                                                     nil, ^(NSNotification* note) {
                                                         (void)note;
                                                         exceptionBarrier("occlusion", [parts] {
                                                             parts->forward(Suspension::occluded, parts->host->holds(Suspension::occluded));
                                                         });
                                                     });
    }
};

std::unique_ptr<ViewParts> makeParts(HMPrincipalView* view)
{
    SaverProcess& process = SaverProcess::shared();
    auto parts = std::make_unique<ViewParts>();
    parts->instance = process.nextInstance++;
    parts->host = std::make_unique<ViewHost>(view, process.workspace);
    parts->frameLoop = std::make_unique<DisplayLinkRunLoop>(process.mainLoop, (__bridge void*)view);
    __weak HMPrincipalView* weakView = view;
    DisplayLinkRunLoop& frameLoop = *parts->frameLoop;
    parts->scenes = std::make_unique<PixelSceneViewFactory>(
        [weakView](Size) {
            auto surface = std::make_unique<LayerSceneSurface>();
            HMPrincipalView* strongView = weakView;
            if (strongView.layer)
                surface->attach((__bridge void*)strongView.layer);
            return surface;
        },
        PosterStore::shared(), frameLoop,
        // The source's loads may outlive the view: the view's teardown
        // leaves them to finish on the detached queue, so they report
        // through the process's main loop, never the view's own.
        [mainLoop = &process.mainLoop](const std::vector<std::filesystem::path>& urls) {
            return std::make_unique<LoopingVideoSource>(urls, *mainLoop,
                                                        std::make_unique<AppleSerialQueue>(LoopingVideoSource::queueLabel),
                                                        &AppleVideoFile::open);
        });

    NSBundle* bundle = [NSBundle bundleForClass:[view class]];
    auto infoText = [bundle](NSString* key) -> std::optional<std::string> {
        id value = bundle.infoDictionary[key];
        if ([value isKindOfClass:[NSString class]])
            return utf8Text((NSString*)value);
        return std::nullopt;
    };
    auto folders = worldsFolders(bundle);
    parts->services = std::make_unique<SaverServices>(SaverServices{
        .mainLoop = process.mainLoop,
        .distributedCenter = process.center,
        .session = process.session,
        .audio = process.audio->arbiter(),
        .scenes = *parts->scenes,
        .activation = process.runs.activation(),
        .loadSettings = [] { return SettingsStore(SettingsStore::sharedFileURL()).load(); },
        .chooseWorld = [folders](const HushmeadowsSettings& settings) { return chooseWorld(settings, folders, SaverProcess::shared().media); },
        .shortVersion = infoText(@"CFBundleShortVersionString"),
        .buildVersion = infoText(@"CFBundleVersion"),
        .randomNumber = [] { return static_cast<std::uint32_t>(std::random_device{}()); },
        .now = [] { return std::chrono::system_clock::now(); },
        .calendar = Calendar::current(),
    });
    parts->core = std::make_unique<HushmeadowsScreenSaverView>(*parts->host, *parts->services);
    return parts;
}

NSDictionary<NSString*, id>* dictionary(const std::map<std::string, HushmeadowsScreenSaverView::DiagnosticValue>& values)
{
    NSMutableDictionary<NSString*, id>* result = [NSMutableDictionary dictionary];
    for (const auto& [key, value] : values) {
        id object = std::visit(
            [](const auto& v) -> id {
                using V = std::decay_t<decltype(v)>;
                if constexpr (std::is_same_v<V, std::string>)
                    return nsText(v);
                else
                    return @(v);
            },
            value);
        result[nsText(key)] = object;
    }
    return result;
}

} // namespace
} // namespace hushmeadows

@implementation HMW_PRINCIPAL_CLASS {
    std::unique_ptr<hushmeadows::ViewParts> _parts;
}

- (instancetype)initWithFrame:(NSRect)frame isPreview:(BOOL)isPreview
{
    self = [super initWithFrame:frame isPreview:isPreview];
    if (!self)
        return nil;
    // Layers only: no backing bitmap of the view's size is ever drawn.
    self.wantsLayer = YES;
    self.layerContentsRedrawPolicy = NSViewLayerContentsRedrawNever;
    if (!hushmeadows::exceptionBarrier("init", [&] { _parts = hushmeadows::makeParts(self); }))
        _parts.reset();
    [self joinRun];
    return self;
}

- (instancetype)initWithCoder:(NSCoder*)coder
{
    self = [super initWithCoder:coder];
    HM_PRECONDITION(false, "init(coder:) is not supported");
    return nil;
}

// Takes part in the current run: the run's will-stop reaches this view, and
// the workspace's sleep and the window's occlusion hold its picture still.
- (void)joinRun
{
    if (!_parts)
        return;
    hushmeadows::ViewParts* parts = _parts.get();
    __weak HMPrincipalView* weakSelf = self;
    NSWindow* window = self.window;
    hushmeadows::exceptionBarrier("joinRun", [parts, weakSelf, window] {
        hushmeadows::SaverProcess& process = hushmeadows::SaverProcess::shared();
        process.runs.join(parts->instance, [weakSelf] {
            HMPrincipalView* strongSelf = weakSelf;
            [strongSelf leaveRunWithWillStop];
        });
        if (!parts->suspensions) {
            parts->suspensions = process.workspace.observeSuspensions([parts](hushmeadows::Suspension reason, bool suspended) {
                parts->forward(reason, suspended);
            });
        }
        if (!parts->occlusion)
            parts->observeWindow(window);
    });
}

// The run ended: picture and sound go, and so do this view's observers and
// the superclass's animation timer, so that views the host keeps after the
// run cost no wake-up at all (the next start starts the timer again).
- (void)leaveRunWithWillStop
{
    hushmeadows::exceptionBarrier("willstop", [&] {
        if (!_parts)
            return;
        _parts->core->screenSaverWillStop();
        _parts->stopObserving();
    });
    if (self.isAnimating)
        [super stopAnimation];
}

- (void)dealloc
{
    auto parts = std::move(_parts);
    if (!parts)
        return;
    if ([NSThread isMainThread]) {
        hushmeadows::SaverProcess::shared().runs.leave(parts->instance);
        hushmeadows::exceptionBarrier("dealloc", [&] { parts.reset(); });
        return;
    }
    // The core and its layers belong to the main thread.
    hushmeadows::ViewParts* raw = parts.release();
    dispatch_async(dispatch_get_main_queue(), ^{
        std::unique_ptr<hushmeadows::ViewParts> owned(raw);
        hushmeadows::SaverProcess::shared().runs.leave(owned->instance);
        hushmeadows::exceptionBarrier("dealloc", [&owned] { owned.reset(); });
    });
}

- (void)startAnimation
{
    if (!_parts) {
        [super startAnimation];
        return;
    }
    hushmeadows::exceptionBarrier("startAnimation", [&] {
        // A view kept from an earlier run joins this one again.
        if (!hushmeadows::SaverProcess::shared().runs.isLive(_parts->instance))
            [self joinRun];
        _parts->core->startAnimation();
    });
}

- (void)stopAnimation
{
    if (!_parts) {
        [super stopAnimation];
        return;
    }
    hushmeadows::exceptionBarrier("stopAnimation", [&] { _parts->core->stopAnimation(); });
}

- (void)animateOneFrame
{
    ++hushmeadows::CallbackCounts::timers;
    hushmeadows::exceptionBarrier("animateOneFrame", [&] {
        if (_parts)
            _parts->core->animateOneFrame();
    });
}

- (void)viewDidMoveToWindow
{
    [super viewDidMoveToWindow];
    hushmeadows::exceptionBarrier("viewDidMoveToWindow", [&] {
        if (!_parts)
            return;
        _parts->core->viewDidMoveToWindow();
        if (hushmeadows::SaverProcess::shared().runs.isLive(_parts->instance))
            _parts->observeWindow(self.window);
    });
}

- (void)setFrameSize:(NSSize)newSize
{
    [super setFrameSize:newSize];
    hushmeadows::exceptionBarrier("setFrameSize", [&] {
        if (hushmeadows::SceneView* scene = _parts ? _parts->core->sceneView() : nullptr)
            scene->layout();
    });
}

// Nothing is drawn into the view itself: its layer's black background and
// the scene's sublayers are all there is.
- (BOOL)wantsUpdateLayer
{
    return YES;
}

- (void)updateLayer
{
}

- (BOOL)isOpaque
{
    return YES;
}

- (BOOL)hasConfigureSheet
{
    return NO;
}

- (NSWindow*)configureSheet
{
    return nil;
}

- (void)superStartAnimation
{
    [super startAnimation];
}

- (void)superStopAnimation
{
    [super stopAnimation];
}

+ (NSDictionary<NSString*, NSNumber*>*)hushmeadowsProcessDiagnostics
{
    NSDictionary<NSString*, NSNumber*>* result = @{};
    hushmeadows::exceptionBarrier("process diagnostics", [&result] {
        hushmeadows::SaverProcess& process = hushmeadows::SaverProcess::shared();
        result = @{
            @"liveInstances" : @(process.runs.liveCount()),
            @"observers" : @(hushmeadows::ScopedObserver::liveCount()),
            @"liveSceneViews" : @(hushmeadows::PixelSceneView::liveCount()),
            @"liveVideoSources" : @(hushmeadows::LoopingVideoSource::liveCount()),
            @"timerCallbacks" : @(hushmeadows::CallbackCounts::timers.load()),
            @"displayLinkCallbacks" : @(hushmeadows::CallbackCounts::displayLinks.load()),
        };
    });
    return result;
}

- (NSDictionary<NSString*, id>*)hushmeadowsDiagnostics
{
    NSDictionary<NSString*, id>* result = @{};
    hushmeadows::exceptionBarrier("diagnostics", [&] {
        if (_parts)
            result = hushmeadows::dictionary(_parts->core->hushmeadowsDiagnostics());
    });
    return result;
}

@end
