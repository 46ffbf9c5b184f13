// Loads the built .saver as the modern host does and runs twenty runs on
// kept views (some started again), each ended by will-stop and every other
// one also by stopAnimation. After each run nothing plays, no timer or display
// link of the bundle fires, and live instances and observers stay flat.
// A second bundle of another version is then loaded into the same process,
// as a host holding the old one does: no class name is shared, and it runs.
//     SaverHarness path/to/Hushmeadows.saver [path/to/other-version/Hushmeadows.saver]

#import <AppKit/AppKit.h>
#import <ScreenSaver/ScreenSaver.h>
#import <objc/runtime.h>

#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>

namespace {

int failures = 0;

void expect(bool ok, int run, const char* what)
{
    if (!ok && ++failures)
        std::fprintf(stderr, "run %d: FAILED: %s\n", run, what);
}

void spin(double seconds) { [[NSRunLoop mainRunLoop] runUntilDate:[NSDate dateWithTimeIntervalSinceNow:seconds]]; }

// Runs the main run loop until the condition holds, at most `limit` seconds.
bool spinUntil(double limit, bool (^condition)(void))
{
    NSDate* deadline = [NSDate dateWithTimeIntervalSinceNow:limit];
    while (!condition()) {
        if ([deadline timeIntervalSinceNow] <= 0)
            return false;
        spin(0.05);
    }
    return true;
}

void post(NSString* name, NSDictionary* info)
{
    [[NSDistributedNotificationCenter defaultCenter] postNotificationName:name object:nil userInfo:info deliverImmediately:YES];
    spin(0.3);
}

// A new view of the class, in its own window on screen; the window keeps it.
ScreenSaverView* shownView(Class principal, BOOL preview, NSMutableArray<NSWindow*>* windows)
{
    NSRect frame = preview ? NSMakeRect(0, 0, 160, 90) : NSMakeRect(0, 0, 640, 360);
    ScreenSaverView* view = [[principal alloc] initWithFrame:frame isPreview:preview];
    NSWindow* window = [[NSWindow alloc] initWithContentRect:frame styleMask:NSWindowStyleMaskBorderless backing:NSBackingStoreBuffered defer:NO];
    window.releasedWhenClosed = NO;
    window.contentView = view;
    [window orderFrontRegardless];
    [windows addObject:window];
    return view;
}

long number(NSDictionary* values, NSString* key) { return [values[key] longValue]; }

NSDictionary* processDiagnostics(Class principal) { return [principal valueForKey:@"hushmeadowsProcessDiagnostics"]; }

long callbacks(Class principal)
{
    NSDictionary* process = processDiagnostics(principal);
    return number(process, @"timerCallbacks") + number(process, @"displayLinkCallbacks");
}

// A stopped run costs no wake-up: no timer or display link of the bundle
// fires over the next second (the superclass's animation timer included).
void expectQuiet(Class principal, int run)
{
    long before = callbacks(principal);
    spin(1.0);
    long after = callbacks(principal);
    if (after != before)
        std::fprintf(stderr, "run %d: %ld timer or display-link callbacks after the stop\n", run, after - before);
    expect(after == before, run, "no timer or display link fires after the will-stop");
}

// The Objective-C classes the bundle's executable defines.
std::set<std::string> classNames(NSBundle* bundle)
{
    std::set<std::string> names;
    unsigned int count = 0;
    const char** list = objc_copyClassNamesForImage(bundle.executablePath.UTF8String, &count);
    for (unsigned int i = 0; i < count; ++i)
        names.insert(list[i]);
    std::free(list);
    return names;
}

// Every class carries our prefix and the bundle's version; the Info.plist's
// principal class is the one the bundle gives.
Class loadPrincipal(NSString* path, int run)
{
    NSBundle* bundle = [NSBundle bundleWithPath:path];
    Class principal = [bundle load] ? bundle.principalClass : Nil;
    expect(principal != Nil && [principal isSubclassOfClass:[ScreenSaverView class]], run, "the principal class is a ScreenSaverView");
    if (principal == Nil)
        return Nil;
    NSString* version = bundle.infoDictionary[@"CFBundleShortVersionString"];
    std::string suffix = "_" + std::string([version stringByReplacingOccurrencesOfString:@"." withString:@"_"].UTF8String);
    auto names = classNames(bundle);
    expect(!names.empty(), run, "the bundle's classes are listed");
    for (const auto& name : names) {
        bool versioned = name.starts_with("HMW") && name.ends_with(suffix);
        if (!versioned)
            std::fprintf(stderr, "run %d: class %s lacks HMW or %s\n", run, name.c_str(), suffix.c_str());
        expect(versioned, run, "every class of the bundle carries HMW and its version");
    }
    expect([NSStringFromClass(principal) isEqualToString:bundle.infoDictionary[@"NSPrincipalClass"]], run,
           "the principal class is the one the Info.plist names");
    expect([NSBundle bundleForClass:principal] == bundle, run, "the principal class comes from this bundle");
    return principal;
}

// Starts a full-screen view and a preview after a real didstart, checks
// their roles and that the picture's display link runs, then ends the run.
void runOnce(Class principal, ScreenSaverView* full, ScreenSaverView* preview, int run, bool alsoStop)
{
    long linksBefore = number(processDiagnostics(principal), @"displayLinkCallbacks");
    post(@"com.apple.screensaver.didstart", @{@"runFromPref" : @NO});
    [full startAnimation];
    [preview startAnimation];
    bool linked = spinUntil(10.0, ^{
        return number(processDiagnostics(principal), @"displayLinkCallbacks") > linksBefore;
    });
    expect(linked, run, "the picture's display link runs while the windows are on screen");
    if (run == 0) {
        // The occlusion path: a window taken off screen holds its picture
        // still, and plays again when it comes back.
        bool (^playing)(void) = ^bool {
            return [[full valueForKey:@"hushmeadowsDiagnostics"][@"isPlaying"] boolValue];
        };
        expect(spinUntil(10.0, playing), run, "the shown view plays");
        [full.window orderOut:nil];
        expect(spinUntil(10.0, ^{ return !playing(); }), run, "a window off screen holds its picture still");
        [full.window orderFrontRegardless];
        expect(spinUntil(10.0, playing), run, "the picture plays again when its window is back on screen");
    }
    NSDictionary* shown = [full valueForKey:@"hushmeadowsDiagnostics"];
    NSDictionary* small = [preview valueForKey:@"hushmeadowsDiagnostics"];
    expect([shown[@"role"] isEqual:@"display"], run, "a real start after didstart shows the world");
    expect([shown[@"hasSceneView"] boolValue], run, "the shown view has its picture");
    expect([small[@"role"] isEqual:@"preview"], run, "a preview view takes the preview role");
    expect(![small[@"ownsAudio"] boolValue], run, "a preview never owns the sound");
    bool allowed = [shown[@"settingsAudioOptIn"] boolValue] && ![shown[@"settingsMuted"] boolValue];
    expect([shown[@"ownsAudio"] boolValue] == allowed, run, "the shown view owns the sound exactly when the settings allow it");

    post(@"com.apple.screensaver.willstop", nil);
    if (alsoStop)
        [full stopAnimation];
    post(@"com.apple.screensaver.didstop", nil);
    for (ScreenSaverView* view in @[ full, preview ]) {
        NSDictionary* after = [view valueForKey:@"hushmeadowsDiagnostics"];
        expect([after[@"role"] isEqual:@"idle"], run, "every view is idle after the run");
        expect(![after[@"isPlaying"] boolValue] && ![after[@"hasSceneView"] boolValue], run, "no picture is left");
        expect(![after[@"ownsAudio"] boolValue] && number(after, @"audioClients") == 0, run, "no sound is left");
        expect(!view.isAnimating, run, "no view keeps its animation timer after the will-stop");
    }
    NSDictionary* process = processDiagnostics(principal);
    expect(number(process, @"liveSceneViews") == 0 && number(process, @"liveVideoSources") == 0, run, "no scene view or video source lives on");
    expect(number(process, @"liveInstances") == 0, run, "no view stays in the ended run");
}

} // namespace

int main(int argc, const char* argv[])
{
    @autoreleasepool {
        if (argc != 2 && argc != 3) {
            std::fprintf(stderr, "usage: SaverHarness path/to/Hushmeadows.saver [path/to/other-version/Hushmeadows.saver]\n");
            return 2;
        }
        // An accessory application: its windows come on screen without a
        // Dock icon or activation, as the host's do.
        [NSApplication sharedApplication];
        [NSApp setActivationPolicy:NSApplicationActivationPolicyAccessory];
        [NSApp finishLaunching];

        Class principal = loadPrincipal(@(argv[1]), 0);
        if (failures || principal == Nil)
            return 1;

        NSMutableArray<NSWindow*>* windows = [NSMutableArray array]; // one per kept view
        NSDictionary* baseline = nil;
        ScreenSaverView* lastFull = nil;
        for (int run = 0; run < 20; ++run) {
            @autoreleasepool {
                // Odd runs start the full-screen view kept from the run before.
                ScreenSaverView* full = lastFull = run % 2 == 1 ? lastFull : shownView(principal, NO, windows);
                ScreenSaverView* preview = shownView(principal, YES, windows);

                runOnce(principal, full, preview, run, run % 2 == 1);
                expectQuiet(principal, run);
                NSDictionary* process = processDiagnostics(principal);
                if (!baseline)
                    baseline = process;
                expect(number(process, @"observers") == number(baseline, @"observers"), run, "observers stay flat");
                std::printf("run %d: instances kept=%lu observers=%ld callbacks=%ld\n", run, static_cast<unsigned long>(windows.count),
                            number(process, @"observers"), callbacks(principal));
            }
        }

        if (argc == 3) {
            // Another version beside the first: its own classes, and it runs.
            const int run = 20;
            NSBundle* first = [NSBundle bundleForClass:principal];
            Class other = loadPrincipal(@(argv[2]), run);
            if (other != Nil) {
                expect(other != principal, run, "the other version's principal class is its own");
                auto shared = classNames(first);
                for (const auto& name : classNames([NSBundle bundleForClass:other]))
                    expect(!shared.contains(name), run, "the two versions share no class name");
                runOnce(other, shownView(other, NO, windows), shownView(other, YES, windows), run, false);
                expectQuiet(other, run);
                expectQuiet(principal, run);
            }
        }
        for (NSWindow* window in windows)
            [window close];
        std::printf("%s: %d failure(s)\n", failures ? "FAILED" : "ok", failures);
        return failures ? 1 : 0;
    }
}
