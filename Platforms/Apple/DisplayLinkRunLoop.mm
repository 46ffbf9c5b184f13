#import "Platforms/Apple/DisplayLinkRunLoop.h"

#import <AppKit/AppKit.h>
#import <QuartzCore/QuartzCore.h>

#include "Platforms/Apple/BundleClassNames.h"
#include "Platforms/Apple/CallbackCounts.h"
#include "Platforms/Apple/ExceptionBarrier.h"

#include <algorithm>

// The display link's target, which the link retains: it holds only a block,
// which holds its work weakly, so the link keeps neither the view nor the
// work alive. The display link has no block form, hence this class; its name
// carries the bundle's version (BundleClassNames.h).
@interface HMW_DISPLAY_LINK_TARGET : NSObject
@property(nonatomic, copy) void (^action)(void);
- (void)fire:(CADisplayLink*)link;
@end

@implementation HMW_DISPLAY_LINK_TARGET
- (void)fire:(CADisplayLink*)link
{
    (void)link;
    if (self.action)
        self.action();
}
@end

namespace hushmeadows {

namespace {

struct LinkToken final : Cancellable {
    CADisplayLink* __strong link = nil;
    bool cancelled = false;
    void cancel() override
    {
        cancelled = true;
        [link invalidate];
        link = nil;
    }
    bool isCancelled() const override { return cancelled; }
    ~LinkToken() override { [link invalidate]; }
};

} // namespace

struct DisplayLinkRunLoop::View {
    __weak NSView* view = nil;
};

DisplayLinkRunLoop::DisplayLinkRunLoop(RunLoop& mainLoop, void* view)
    : mainLoop_(mainLoop)
    , view_(std::make_unique<View>())
{
    view_->view = (__bridge NSView*)view;
}

DisplayLinkRunLoop::~DisplayLinkRunLoop() = default;

std::shared_ptr<Cancellable> DisplayLinkRunLoop::scheduleRepeating(double interval, std::function<void()> work)
{
    NSView* view = view_->view;
    if (!view || !(interval > 0))
        return mainLoop_.scheduleRepeating(interval, std::move(work));
    auto token = std::make_shared<LinkToken>();
    auto shared = std::make_shared<std::function<void()>>(std::move(work));
    std::weak_ptr<LinkToken> weak = token;
    HMW_DISPLAY_LINK_TARGET* proxy = [HMW_DISPLAY_LINK_TARGET new];
    proxy.action = ^{
        ++CallbackCounts::displayLinks;
        auto alive = weak.lock();
        if (alive && !alive->isCancelled())
            exceptionBarrier("display link", *shared);
    };
    CADisplayLink* link = [view displayLinkWithTarget:proxy selector:@selector(fire:)];
    // At most the rate asked for; the display may give less.
    const float rate = static_cast<float>(std::min(1.0 / interval, 240.0));
    link.preferredFrameRateRange = CAFrameRateRangeMake(rate / 2, rate, rate);
    [link addToRunLoop:[NSRunLoop mainRunLoop] forMode:NSRunLoopCommonModes];
    token->link = link;
    return token;
}

} // namespace hushmeadows
