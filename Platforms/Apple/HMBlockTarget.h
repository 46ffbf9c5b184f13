#pragma once

// Objective-C++ only. The target of a timer or a display link: it holds only
// a block, which holds its work weakly, so that the timer or link (which
// retains its target) keeps neither the owner nor the work alive.

#import <Foundation/Foundation.h>

@interface HMBlockTarget : NSObject
@property(nonatomic, copy) void (^action)(void);
// The selector for the timer or link; the sender is ignored.
- (void)fire:(id)sender;
@end
