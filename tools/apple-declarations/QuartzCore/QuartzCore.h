// Declarations written from Apple's public documentation, for the parse check
// only (tools/check-macos-host.sh); not Apple's header.
#pragma once

#import <Foundation/Foundation.h>
#include <CoreGraphics/CoreGraphics.h>

typedef double CFTimeInterval;

#ifdef __cplusplus
extern "C" {
#endif
CFTimeInterval CACurrentMediaTime(void);
#ifdef __cplusplus
}
#endif

typedef NSString* CALayerContentsFilter;
typedef NSString* CALayerContentsGravity;
extern CALayerContentsFilter const kCAFilterNearest;
extern CALayerContentsFilter const kCAFilterLinear;
extern CALayerContentsGravity const kCAGravityResize;

typedef unsigned int CAAutoresizingMask;
enum : CAAutoresizingMask {
    kCALayerNotSizable = 0,
    kCALayerMinXMargin = 1U << 0,
    kCALayerWidthSizable = 1U << 1,
    kCALayerMaxXMargin = 1U << 2,
    kCALayerMinYMargin = 1U << 3,
    kCALayerHeightSizable = 1U << 4,
    kCALayerMaxYMargin = 1U << 5,
};

@protocol CAAction
@end

@interface CALayer : NSObject
+ (instancetype)layer;
@property CGRect bounds;
@property CGRect frame;
@property CGPoint position;
@property(getter=isGeometryFlipped) BOOL geometryFlipped;
@property CAAutoresizingMask autoresizingMask;
@property(strong) id contents;
@property CGRect contentsRect;
@property(copy) CALayerContentsGravity contentsGravity;
@property CGFloat contentsScale;
@property(copy) CALayerContentsFilter magnificationFilter;
@property CGColorRef backgroundColor;
@property(copy) NSDictionary<NSString*, id<CAAction>>* actions;
@property(copy) NSArray<CALayer*>* sublayers;
@property(weak) id delegate;
- (void)addSublayer:(CALayer*)layer;
- (void)removeFromSuperlayer;
@end

@interface NSNull (CAAction) <CAAction>
@end

@interface CATransaction : NSObject
+ (void)begin;
+ (void)commit;
+ (void)setDisableActions:(BOOL)flag;
@end

typedef struct {
    float minimum;
    float maximum;
    float preferred;
} CAFrameRateRange;

#ifdef __cplusplus
extern "C" {
#endif
CAFrameRateRange CAFrameRateRangeMake(float minimum, float maximum, float preferred);
#ifdef __cplusplus
}
#endif

@interface CADisplayLink : NSObject
- (void)addToRunLoop:(NSRunLoop*)runloop forMode:(NSRunLoopMode)mode;
- (void)invalidate;
@property(readonly) CFTimeInterval timestamp;
@property(readonly) CFTimeInterval targetTimestamp;
@property(getter=isPaused) BOOL paused;
@property CAFrameRateRange preferredFrameRateRange;
@end
