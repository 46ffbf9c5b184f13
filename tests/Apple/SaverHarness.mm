// Loads the built .saver as the system's host does and runs its principal
// class through twenty runs the way the modern host does: views are kept
// after each run and some are started again; a run ends with the engine's
// will-stop, and every other run also with stopAnimation. After each run
// nothing may still play, and the process's live instances and observers
// must stay where the first run left them.
//
//     SaverHarness path/to/Hushmeadows.saver

#import <AppKit/AppKit.h>
#import <ScreenSaver/ScreenSaver.h>

#include <cstdio>
#include <string>

namespace {

int failures = 0;

void expect(bool ok, int run, const char* what)
{
    if (ok)
        return;
    ++failures;
    std::fprintf(stderr, "run %d: FAILED: %s\n", run, what);
}

void spin(double seconds) { [[NSRunLoop mainRunLoop] runUntilDate:[NSDate dateWithTimeIntervalSinceNow:seconds]]; }

void post(NSString* name, NSDictionary* info)
{
    [[NSDistributedNotificationCenter defaultCenter] postNotificationName:name object:nil userInfo:info deliverImmediately:YES];
    spin(0.3);
}

NSWindow* windowFor(ScreenSaverView* view, NSRect frame)
{
    NSWindow* window = [[NSWindow alloc] initWithContentRect:frame styleMask:NSWindowStyleMaskBorderless backing:NSBackingStoreBuffered defer:NO];
    window.releasedWhenClosed = NO;
    window.contentView = view;
    [window orderFront:nil];
    return window;
}

long number(NSDictionary* values, NSString* key) { return [values[key] longValue]; }

} // namespace

int main(int argc, const char* argv[])
{
    @autoreleasepool {
        if (argc != 2) {
            std::fprintf(stderr, "usage: SaverHarness path/to/Hushmeadows.saver\n");
            return 2;
        }
        [NSApplication sharedApplication];
        NSBundle* bundle = [NSBundle bundleWithPath:@(argv[1])];
        Class principal = [bundle load] ? bundle.principalClass : Nil;
        expect(principal != Nil && [principal isSubclassOfClass:[ScreenSaverView class]], 0, "the principal class is a ScreenSaverView");
        if (failures)
            return 1;

        NSMutableArray<ScreenSaverView*>* kept = [NSMutableArray array];
        NSMutableArray<NSWindow*>* windows = [NSMutableArray array];
        NSDictionary* baseline = nil;
        ScreenSaverView* lastFull = nil;
        for (int run = 0; run < 20; ++run) {
            @autoreleasepool {
                // Odd runs start the full-screen view kept from the run before.
                ScreenSaverView* full = run % 2 == 1 ? lastFull : [[principal alloc] initWithFrame:NSMakeRect(0, 0, 640, 360) isPreview:NO];
                lastFull = full;
                ScreenSaverView* preview = [[principal alloc] initWithFrame:NSMakeRect(0, 0, 160, 90) isPreview:YES];
                if (run % 2 == 0) {
                    [kept addObject:full];
                    [windows addObject:windowFor(full, NSMakeRect(0, 0, 640, 360))];
                }
                [kept addObject:preview];
                [windows addObject:windowFor(preview, NSMakeRect(0, 0, 160, 90))];

                post(@"com.apple.screensaver.didstart", @{@"runFromPref" : @NO});
                [full startAnimation];
                [preview startAnimation];
                spin(0.5);
                NSDictionary* shown = [full valueForKey:@"hushmeadowsDiagnostics"];
                NSDictionary* small = [preview valueForKey:@"hushmeadowsDiagnostics"];
                expect([shown[@"role"] isEqual:@"display"], run, "a real start after didstart shows the world");
                expect([shown[@"hasSceneView"] boolValue], run, "the shown view has its picture");
                expect([small[@"role"] isEqual:@"preview"], run, "a preview view takes the preview role");
                expect(![small[@"ownsAudio"] boolValue], run, "a preview never owns the sound");
                bool allowed = [shown[@"settingsAudioOptIn"] boolValue] && ![shown[@"settingsMuted"] boolValue];
                expect([shown[@"ownsAudio"] boolValue] == allowed, run, "the shown view owns the sound exactly when the settings allow it");

                post(@"com.apple.screensaver.willstop", nil);
                if (run % 2 == 1)
                    [full stopAnimation];
                post(@"com.apple.screensaver.didstop", nil);
                for (ScreenSaverView* view in @[ full, preview ]) {
                    NSDictionary* after = [view valueForKey:@"hushmeadowsDiagnostics"];
                    expect([after[@"role"] isEqual:@"idle"], run, "every view is idle after the run");
                    expect(![after[@"isPlaying"] boolValue] && ![after[@"hasSceneView"] boolValue], run, "no picture is left");
                    expect(![after[@"ownsAudio"] boolValue] && number(after, @"audioClients") == 0, run, "no sound is left");
                }
                NSDictionary* process = [principal valueForKey:@"hushmeadowsProcessDiagnostics"];
                expect(number(process, @"liveSceneViews") == 0 && number(process, @"liveVideoSources") == 0, run, "no scene view or video source lives on");
                expect(number(process, @"liveInstances") == 0, run, "no view stays in the ended run");
                if (!baseline)
                    baseline = process;
                expect(number(process, @"observers") == number(baseline, @"observers"), run, "observers stay flat");
                std::printf("run %d: instances kept=%lu observers=%ld\n", run, static_cast<unsigned long>(kept.count),
                            number(process, @"observers"));
            }
        }
        for (NSWindow* window in windows)
            [window close];
        std::printf("%s: %d failure(s)\n", failures ? "FAILED" : "ok", failures);
        return failures ? 1 : 0;
    }
}
