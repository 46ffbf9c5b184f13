// Declarations written from Apple's public documentation, for the parse check
// only (tools/check-macos-host.sh); not Apple's header.
#pragma once

#import <Foundation/Foundation.h>
#import <QuartzCore/QuartzCore.h>

@class NSWindow, NSScreen;

@interface NSResponder : NSObject
@end

@interface NSColor : NSObject
@property(class, strong, readonly) NSColor* blackColor;
@property(readonly) CGColorRef CGColor;
@end

typedef NS_ENUM(NSInteger, NSViewLayerContentsRedrawPolicy) {
    NSViewLayerContentsRedrawNever = 0,
    NSViewLayerContentsRedrawOnSetNeedsDisplay = 1,
    NSViewLayerContentsRedrawDuringViewResize = 2,
    NSViewLayerContentsRedrawBeforeViewResize = 3,
    NSViewLayerContentsRedrawCrossfade = 4,
};

@interface NSView : NSResponder
- (instancetype)initWithFrame:(NSRect)frameRect;
- (instancetype)initWithCoder:(NSCoder*)coder;
@property NSRect frame;
@property NSRect bounds;
@property(readonly, weak) NSWindow* window;
@property BOOL wantsLayer;
@property(strong) CALayer* layer;
@property NSViewLayerContentsRedrawPolicy layerContentsRedrawPolicy;
@property(readonly) BOOL wantsUpdateLayer;
@property(readonly, getter=isOpaque) BOOL opaque;
- (void)updateLayer;
- (void)viewDidMoveToWindow;
- (void)setFrameSize:(NSSize)newSize;
- (void)removeFromSuperview;
- (CADisplayLink*)displayLinkWithTarget:(id)target selector:(SEL)selector;
@end

typedef NS_OPTIONS(NSUInteger, NSWindowStyleMask) {
    NSWindowStyleMaskBorderless = 0,
    NSWindowStyleMaskTitled = 1 << 0,
};

typedef NS_ENUM(NSUInteger, NSBackingStoreType) {
    NSBackingStoreRetained = 0,
    NSBackingStoreNonretained = 1,
    NSBackingStoreBuffered = 2,
};

typedef NS_OPTIONS(NSUInteger, NSWindowOcclusionState) {
    NSWindowOcclusionStateVisible = 1UL << 1,
};

typedef NSInteger NSWindowLevel;

@interface NSWindow : NSResponder
- (instancetype)initWithContentRect:(NSRect)contentRect styleMask:(NSWindowStyleMask)style backing:(NSBackingStoreType)backingStoreType defer:(BOOL)flag;
@property(readonly) NSRect frame;
@property NSWindowLevel level;
@property(readonly, strong) NSScreen* screen;
@property(strong) NSView* contentView;
@property(readonly) CGFloat backingScaleFactor;
@property(readonly) NSWindowOcclusionState occlusionState;
@property(getter=isReleasedWhenClosed) BOOL releasedWhenClosed;
@property(readonly, getter=isVisible) BOOL visible;
- (void)orderFront:(id)sender;
- (void)orderFrontRegardless;
- (void)orderOut:(id)sender;
- (void)close;
@end
extern NSNotificationName const NSWindowDidChangeOcclusionStateNotification;

@interface NSScreen : NSObject
@property(class, readonly, copy) NSArray<NSScreen*>* screens;
@property(class, readonly, strong) NSScreen* mainScreen;
@property(readonly) NSRect frame;
@property(readonly) CGFloat backingScaleFactor;
@end

@interface NSRunningApplication : NSObject
@property(readonly, getter=isTerminated) BOOL terminated;
@property(readonly, copy) NSString* bundleIdentifier;
@property(readonly, copy) NSDate* launchDate;
@end

@interface NSWorkspace : NSObject
@property(class, readonly, strong) NSWorkspace* sharedWorkspace;
@property(readonly, strong) NSNotificationCenter* notificationCenter;
@property(readonly, copy) NSArray<NSRunningApplication*>* runningApplications;
- (NSURL*)URLForApplicationWithBundleIdentifier:(NSString*)bundleIdentifier;
@end
extern NSNotificationName const NSWorkspaceWillSleepNotification;
extern NSNotificationName const NSWorkspaceDidWakeNotification;
extern NSNotificationName const NSWorkspaceScreensDidSleepNotification;
extern NSNotificationName const NSWorkspaceScreensDidWakeNotification;

typedef NS_ENUM(NSInteger, NSApplicationActivationPolicy) {
    NSApplicationActivationPolicyRegular,
    NSApplicationActivationPolicyAccessory,
    NSApplicationActivationPolicyProhibited,
};

@interface NSApplication : NSResponder
@property(class, readonly, strong) NSApplication* sharedApplication;
- (BOOL)setActivationPolicy:(NSApplicationActivationPolicy)activationPolicy;
- (void)activate;
- (void)finishLaunching;
@end
extern NSApplication* NSApp;
