// Declarations written from Apple's public documentation, for the parse check
// only (tools/check-macos-host.sh); not Apple's header.
#pragma once

#import <AppKit/AppKit.h>

@interface ScreenSaverView : NSView
- (instancetype)initWithFrame:(NSRect)frame isPreview:(BOOL)isPreview;
- (instancetype)initWithCoder:(NSCoder*)coder;
@property NSTimeInterval animationTimeInterval;
@property(readonly, getter=isAnimating) BOOL animating;
@property(readonly, getter=isPreview) BOOL preview;
@property(readonly) BOOL hasConfigureSheet;
@property(readonly, strong) NSWindow* configureSheet;
- (void)startAnimation;
- (void)stopAnimation;
- (void)animateOneFrame;
@end
