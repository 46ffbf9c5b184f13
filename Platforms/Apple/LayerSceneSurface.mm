#import "Platforms/Apple/LayerSceneSurface.h"

#import <AppKit/AppKit.h>
#import <QuartzCore/QuartzCore.h>

#include <algorithm>

namespace hushmeadows {

namespace {

// A CGImage over the core's own pixels, never a copy of them: a video frame
// keeps the one copy the decoder made. The provider holds a reference to the
// (pooled) image and drops it when Core Animation lets go of the CGImage;
// only then can the pool reuse the buffer.
CGImageRef makeCGImage(std::shared_ptr<const Image> image)
{
    auto* keeper = new std::shared_ptr<const Image>(std::move(image));
    const Image& pixels = **keeper;
    CGDataProviderRef provider = CGDataProviderCreateWithData(keeper, pixels.pixels.data(), pixels.byteCost(), [](void* info, const void*, size_t) {
        delete static_cast<std::shared_ptr<const Image>*>(info);
    });
    if (!provider) {
        delete keeper;
        return nullptr;
    }
    CGColorSpaceRef space = CGColorSpaceCreateWithName(kCGColorSpaceSRGB);
    // Video frames are opaque: alpha skipped, so nothing is blended.
    CGBitmapInfo alpha = pixels.format == PixelFormat::bgra8
        ? (CGBitmapInfo)(pixels.opaque ? kCGImageAlphaNoneSkipFirst : kCGImageAlphaPremultipliedFirst)
        : (CGBitmapInfo)kCGImageAlphaNoneSkipLast;
    CGBitmapInfo bitmapInfo = alpha | (pixels.format == PixelFormat::bgra8 ? kCGBitmapByteOrder32Little : kCGBitmapByteOrder32Big);
    CGImageRef result = CGImageCreate(static_cast<size_t>(pixels.width), static_cast<size_t>(pixels.height), 8, 32, pixels.bytesPerRow, space,
                                      bitmapInfo, provider, nullptr, true, kCGRenderingIntentDefault);
    CGColorSpaceRelease(space);
    CGDataProviderRelease(provider);
    return result;
}

} // namespace

struct LayerSceneSurface::Layers {
    CALayer* host = nil;
    CALayer* margins = [CALayer layer];
    CALayer* artwork = [CALayer layer];

    Layers()
    {
        // Top-left geometry, as the core counts pixels.
        margins.geometryFlipped = YES;
        margins.actions = @{@"sublayers" : [NSNull null], @"contents" : [NSNull null]};
        artwork.actions = @{@"contents" : [NSNull null], @"bounds" : [NSNull null], @"position" : [NSNull null]};
    }

    double scale() const
    {
        NSWindow* window = nil;
        if (host.delegate && [(id)host.delegate isKindOfClass:[NSView class]])
            window = ((NSView*)host.delegate).window;
        if (window)
            return window.backingScaleFactor;
        if (NSScreen.mainScreen)
            return NSScreen.mainScreen.backingScaleFactor;
        return 2.0;
    }
};

LayerSceneSurface::LayerSceneSurface() : layers_(std::make_unique<Layers>()) {}

LayerSceneSurface::~LayerSceneSurface() { detach(); }

void LayerSceneSurface::attach(void* hostLayer)
{
    CALayer* host = (__bridge CALayer*)hostLayer;
    if (layers_->host == host)
        return;
    detach();
    layers_->host = host;
    layers_->margins.frame = host.bounds;
    layers_->margins.autoresizingMask = kCALayerWidthSizable | kCALayerHeightSizable;
    [host addSublayer:layers_->margins];
    [layers_->margins addSublayer:layers_->artwork];
}

void LayerSceneSurface::detach()
{
    [layers_->margins removeFromSuperlayer];
    layers_->host = nil;
}

Size LayerSceneSurface::boundsSize() const
{
    CGSize size = layers_->host ? layers_->host.bounds.size : CGSizeZero;
    return {size.width, size.height};
}

double LayerSceneSurface::backingScale() const { return layers_->scale(); }

void LayerSceneSurface::setArtwork(std::shared_ptr<const Image> image, PixelRect frame, Magnification magnification)
{
    double scale = std::max(backingScale(), 1.0);
    [CATransaction begin];
    [CATransaction setDisableActions:YES];
    CGImageRef contents = makeCGImage(std::move(image));
    layers_->artwork.contents = (__bridge id)contents;
    CGImageRelease(contents);
    layers_->artwork.contentsScale = scale;
    layers_->artwork.magnificationFilter = magnification == Magnification::nearest ? kCAFilterNearest : kCAFilterLinear;
    layers_->artwork.frame = CGRectMake(frame.x / scale, frame.y / scale, frame.width / scale, frame.height / scale);
    [CATransaction commit];
}

void LayerSceneSurface::updateArtwork(std::shared_ptr<const Image> image, const std::vector<PixelRect>&)
{
    [CATransaction begin];
    [CATransaction setDisableActions:YES];
    CGImageRef contents = makeCGImage(std::move(image));
    layers_->artwork.contents = (__bridge id)contents;
    CGImageRelease(contents);
    [CATransaction commit];
}

void LayerSceneSurface::setMargins(std::vector<MarginBar> bars)
{
    double scale = std::max(backingScale(), 1.0);
    [CATransaction begin];
    [CATransaction setDisableActions:YES];
    NSMutableArray<CALayer*>* sublayers = [NSMutableArray arrayWithObject:layers_->artwork];
    for (const auto& bar : bars) {
        CALayer* layer = [CALayer layer];
        layer.frame = CGRectMake(bar.rect.x / scale, bar.rect.y / scale, bar.rect.width / scale, bar.rect.height / scale);
        if (bar.fill == MarginBar::Fill::color || !bar.strip) {
            CGColorRef color = CGColorCreateSRGB(bar.color.red / 255.0, bar.color.green / 255.0, bar.color.blue / 255.0, 1.0);
            layer.backgroundColor = color;
            CGColorRelease(color);
        } else {
            CGImageRef strip = makeCGImage(bar.strip);
            layer.contents = (__bridge id)strip;
            CGImageRelease(strip);
            layer.contentsGravity = kCAGravityResize;
            layer.magnificationFilter = kCAFilterLinear;
            // Show only the part of the strip that lies beside the visible bar.
            double length = std::max(bar.spanLength, 1);
            if (bar.stripIsVertical)
                layer.contentsRect = CGRectMake(0, (bar.rect.y - bar.spanStart) / length, 1, bar.rect.height / length);
            else
                layer.contentsRect = CGRectMake((bar.rect.x - bar.spanStart) / length, 0, bar.rect.width / length, 1);
        }
        [sublayers insertObject:layer atIndex:0];
    }
    layers_->margins.sublayers = sublayers;
    [CATransaction commit];
}

void LayerSceneSurface::clear()
{
    [CATransaction begin];
    [CATransaction setDisableActions:YES];
    layers_->artwork.contents = nil;
    layers_->margins.sublayers = @[ layers_->artwork ];
    [CATransaction commit];
}

} // namespace hushmeadows
