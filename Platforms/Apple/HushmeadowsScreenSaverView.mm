// The screen saver bundle's principal class: a thin ScreenSaverView subclass
// that hands every decision to the portable HushmeadowsScreenSaverView and
// gives it the platform through small adapters.

#import "Platforms/Apple/AppleServices.h"

#import <AppKit/AppKit.h>
#import <QuartzCore/QuartzCore.h>
#import <ScreenSaver/ScreenSaver.h>

#include "HushmeadowsSaver/ActivationMonitor.h"
#include "HushmeadowsSaver/HushmeadowsScreenSaverView.h"
#include "HushmeadowsSaver/WorldChoice.h"
#include "Platforms/Apple/LayerSceneSurface.h"
#include "SceneCore/Picture/PixelSceneView.h"
#include "SceneCore/Picture/PosterStore.h"
#include "SceneCore/Runtime/Precondition.h"
#include "SceneCore/Settings/Environment.h"
#include "SceneCore/Settings/SettingsStore.h"

#include <pwd.h>
#include <unistd.h>

#include <random>
#include <set>

@class HushmeadowsScreenSaverView;
// The Objective-C principal class, named apart from the portable view of the
// same name inside the namespace below.
typedef HushmeadowsScreenSaverView HMPrincipalView;

namespace hushmeadows {
namespace {

// The system's screen saver notifications, turned into the core's calls here.
constexpr const char* didStartName = "com.apple.screensaver.didstart";
constexpr const char* didStopName = "com.apple.screensaver.didstop";
constexpr const char* willStopName = "com.apple.screensaver.willstop";
constexpr const char* runFromPrefKey = "runFromPref";

// Sound on macOS comes with its own adapter; until then the saver keeps every
// claim and plays nothing.
class SilentArbiter final : public AudioArbiter {
public:
    void acquire(const void* client, const WorldPackage&, const HushmeadowsSettings&) override { clients_.insert(client); }
    void release(const void* client, bool) override { clients_.erase(client); }
    Diagnostics diagnostics(const void* client) const override
    {
        Diagnostics d;
        d.clients = static_cast<int>(clients_.size());
        d.ownsAudio = clients_.contains(client);
        return d;
    }

private:
    std::set<const void*> clients_;
};

// Everything the process shares across its views, made on first use on the
// main thread and kept for the life of the process.
struct SaverProcess {
    AppleMainRunLoop mainLoop;
    AppleDistributedCenter center;
    AppleSystemSession session;
    ActivationMonitor activation{[this](ActivationMonitor& monitor) {
        center.addObserver(didStartName, [&monitor](const std::map<std::string, bool>& booleans) {
            auto flag = booleans.find(runFromPrefKey);
            monitor.screenSaverDidStart(flag != booleans.end() && flag->second);
        });
        center.addObserver(didStopName, [&monitor](const std::map<std::string, bool>&) { monitor.screenSaverDidStop(); });
    }};
    AppleMediaProbe media;
    SilentArbiter audio;

    SaverProcess()
    {
        Log::setSink(std::make_shared<AppleLogSink>());
        Environment environment = Environment::fromProcess(realHome());
        Environment::install(environment);
        PosterStore::installShared(std::make_unique<PosterStore>(mainLoop, std::make_unique<DispatchSerialQueue>(PosterStore::queueLabel),
                                                                 std::make_shared<AppleImageDecoder>(), media));
    }

    static std::optional<std::filesystem::path> realHome()
    {
        if (const passwd* entry = getpwuid(getuid()); entry && entry->pw_dir)
            return std::filesystem::path(entry->pw_dir);
        return std::nullopt;
    }

    static SaverProcess& shared()
    {
        static SaverProcess* process = new SaverProcess();
        return *process;
    }

    // A serial dispatch queue at user-initiated quality of service.
    class DispatchSerialQueue final : public SerialQueue {
    public:
        explicit DispatchSerialQueue(std::string label)
            : label_(std::move(label))
            , queue_(dispatch_queue_create(label_.c_str(), dispatch_queue_attr_make_with_qos_class(DISPATCH_QUEUE_SERIAL, QOS_CLASS_USER_INITIATED, 0)))
        {
        }
        const std::string& label() const override { return label_; }
        void async(std::function<void()> work) override
        {
            auto shared = std::make_shared<std::function<void()>>(std::move(work));
            dispatch_async(queue_, ^{
                (*shared)();
            });
        }

    private:
        std::string label_;
        dispatch_queue_t queue_;
    };
};

// The worlds folders: the companion application's, then the bundle's own.
std::vector<WorldsFolder> worldsFolders(NSBundle* bundle)
{
    std::vector<WorldsFolder> folders;
    NSURL* app = [[NSWorkspace sharedWorkspace] URLForApplicationWithBundleIdentifier:@"app.hushmeadows"];
    if (!app) {
        NSURL* guess = [NSURL fileURLWithPath:@"/Applications/Hushmeadows.app"];
        if ([[NSFileManager defaultManager] fileExistsAtPath:guess.path])
            app = guess;
    }
    if (app) {
        NSURL* receipt = [app URLByAppendingPathComponent:@"Contents/_MASReceipt/receipt"];
        bool fromStore = [[NSFileManager defaultManager] fileExistsAtPath:receipt.path];
        NSURL* worlds = [app URLByAppendingPathComponent:@"Contents/Resources/Worlds"];
        folders.push_back({worlds.path.UTF8String, fromStore ? "appStore" : "direct"});
    }
    if (bundle.resourceURL)
        folders.push_back({[bundle.resourceURL URLByAppendingPathComponent:@"Worlds"].path.UTF8String, "fallback"});
    return folders;
}

} // namespace
} // namespace hushmeadows

@interface HushmeadowsScreenSaverView : ScreenSaverView
// The superclass's own animation calls, for the portable view.
- (void)superStartAnimation;
- (void)superStopAnimation;
// The engine's will-stop notification, for the portable view.
- (void)screenSaverWillStop;
@end

namespace hushmeadows {
namespace {

// The superclass and the window system, as the portable view sees them.
class ViewHost final : public ScreenSaverHost {
public:
    explicit ViewHost(HMPrincipalView* view) : view_(view) {}

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
        view_.wantsLayer = YES;
        view_.layer.backgroundColor = NSColor.blackColor.CGColor;
    }
    void addSceneView(SceneView&) override { surface_->attach((__bridge void*)view_.layer); }
    void removeSceneView(SceneView&) override { surface_->detach(); }

    LayerSceneSurface& surface() { return *surface_; }

private:
    static Rect rect(NSRect r) { return Rect{{r.origin.x, r.origin.y}, {r.size.width, r.size.height}}; }

    __weak HMPrincipalView* view_;
    std::unique_ptr<LayerSceneSurface> surface_ = std::make_unique<LayerSceneSurface>();
};

// One scene view per saver view, drawn on that view's layers.
class ViewSceneFactory final : public SceneViewFactory {
public:
    explicit ViewSceneFactory(ViewHost& host) : host_(host) {}
    std::unique_ptr<SceneView> makeSceneView(Size) override
    {
        return std::make_unique<PixelSceneView>(host_.surface(), PosterStore::shared());
    }
    int liveSceneViews() const override { return PixelSceneView::liveCount(); }
    int liveVideoSources() const override { return 0; }

private:
    ViewHost& host_;
};

} // namespace
} // namespace hushmeadows

@implementation HushmeadowsScreenSaverView {
    std::unique_ptr<hushmeadows::ViewHost> _host;
    std::unique_ptr<hushmeadows::ViewSceneFactory> _scenes;
    std::unique_ptr<hushmeadows::SaverServices> _services;
    std::unique_ptr<hushmeadows::HushmeadowsScreenSaverView> _core;
    std::optional<hushmeadows::AppleDistributedCenter::Token> _stopObserver;
}

- (instancetype)initWithFrame:(NSRect)frame isPreview:(BOOL)isPreview
{
    self = [super initWithFrame:frame isPreview:isPreview];
    if (!self)
        return nil;
    hushmeadows::SaverProcess& process = hushmeadows::SaverProcess::shared();
    _host = std::make_unique<hushmeadows::ViewHost>(self);
    _scenes = std::make_unique<hushmeadows::ViewSceneFactory>(*_host);
    NSBundle* bundle = [NSBundle bundleForClass:[self class]];
    auto infoText = [bundle](NSString* key) -> std::optional<std::string> {
        id value = bundle.infoDictionary[key];
        if ([value isKindOfClass:[NSString class]])
            return std::string(((NSString*)value).UTF8String);
        return std::nullopt;
    };
    auto folders = hushmeadows::worldsFolders(bundle);
    _services = std::make_unique<hushmeadows::SaverServices>(hushmeadows::SaverServices{
        .mainLoop = process.mainLoop,
        .distributedCenter = process.center,
        .session = process.session,
        .audio = process.audio,
        .scenes = *_scenes,
        .activation = process.activation,
        .loadSettings = [] { return hushmeadows::SettingsStore(hushmeadows::SettingsStore::sharedFileURL()).load(); },
        .chooseWorld =
            [folders](const hushmeadows::HushmeadowsSettings& settings) {
                return hushmeadows::chooseWorld(settings, folders, hushmeadows::SaverProcess::shared().media);
            },
        .shortVersion = infoText(@"CFBundleShortVersionString"),
        .buildVersion = infoText(@"CFBundleVersion"),
        .randomNumber = [] { return static_cast<std::uint32_t>(std::random_device{}()); },
        .now = [] { return std::chrono::system_clock::now(); },
        .calendar = hushmeadows::Calendar::current(),
    });
    _core = std::make_unique<hushmeadows::HushmeadowsScreenSaverView>(*_host, *_services);
    // Each view hears the engine's will-stop itself and passes it to its core.
    __weak HMPrincipalView* weakSelf = self;
    _stopObserver = process.center.addObserver(hushmeadows::willStopName, [weakSelf](const std::map<std::string, bool>&) {
        HMPrincipalView* strongSelf = weakSelf;
        if (strongSelf)
            [strongSelf screenSaverWillStop];
    });
    return self;
}

- (instancetype)initWithCoder:(NSCoder*)coder
{
    HM_PRECONDITION(false, "init(coder:) is not supported");
    return nil;
}

- (void)dealloc
{
    if (_stopObserver)
        hushmeadows::SaverProcess::shared().center.removeObserver(*_stopObserver);
    // The core releases the sound at once.
    _core.reset();
}

- (void)screenSaverWillStop
{
    if (_core)
        _core->screenSaverWillStop();
}

- (void)startAnimation
{
    _core->startAnimation();
}

- (void)stopAnimation
{
    _core->stopAnimation();
}

- (void)animateOneFrame
{
    _core->animateOneFrame();
}

- (void)viewDidMoveToWindow
{
    [super viewDidMoveToWindow];
    _core->viewDidMoveToWindow();
}

- (void)setFrameSize:(NSSize)newSize
{
    [super setFrameSize:newSize];
    if (hushmeadows::SceneView* scene = _core ? _core->sceneView() : nullptr)
        scene->layout();
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

@end
