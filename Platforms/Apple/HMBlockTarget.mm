#import "Platforms/Apple/HMBlockTarget.h"

@implementation HMBlockTarget
- (void)fire:(id)sender
{
    (void)sender;
    if (self.action)
        self.action();
}
@end
