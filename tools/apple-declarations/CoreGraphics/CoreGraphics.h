// Declarations written from Apple's public documentation, for the parse check
// only (tools/check-macos-host.sh); not Apple's header.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <CoreGraphics/CGGeometry.h>

typedef struct CGImage* CGImageRef;
typedef struct CGColor* CGColorRef;
typedef struct CGColorSpace* CGColorSpaceRef;
typedef struct CGContext* CGContextRef;
typedef struct CGDataProvider* CGDataProviderRef;

// A plain enumeration; CGBitmapInfo is an option set of its own (in C++ a
// typedef and an unnamed enumeration), so mixing the two needs a cast.
typedef enum CGImageAlphaInfo : uint32_t {
    kCGImageAlphaNone,
    kCGImageAlphaPremultipliedLast,
    kCGImageAlphaPremultipliedFirst,
    kCGImageAlphaLast,
    kCGImageAlphaFirst,
    kCGImageAlphaNoneSkipLast,
    kCGImageAlphaNoneSkipFirst,
    kCGImageAlphaOnly,
} CGImageAlphaInfo;

typedef uint32_t CGBitmapInfo;
enum : uint32_t {
    kCGBitmapAlphaInfoMask = 0x1F,
    kCGBitmapByteOrderDefault = (0 << 12),
    kCGBitmapByteOrder32Little = (2 << 12),
    kCGBitmapByteOrder32Big = (4 << 12),
};

typedef enum : int32_t {
    kCGRenderingIntentDefault,
    kCGRenderingIntentAbsoluteColorimetric,
    kCGRenderingIntentRelativeColorimetric,
    kCGRenderingIntentPerceptual,
    kCGRenderingIntentSaturation,
} CGColorRenderingIntent;

typedef enum : uint32_t {
    kCGEventSourceStatePrivate = (uint32_t)-1,
    kCGEventSourceStateCombinedSessionState = 0,
    kCGEventSourceStateHIDSystemState = 1,
} CGEventSourceStateID;
typedef uint32_t CGEventType;
#define kCGAnyInputEventType ((CGEventType)(~0))

typedef void (*CGDataProviderReleaseDataCallback)(void* info, const void* data, size_t size);

#ifdef __cplusplus
extern "C" {
#endif

extern const CFStringRef kCGColorSpaceSRGB;
CGColorSpaceRef CGColorSpaceCreateWithName(CFStringRef name);
void CGColorSpaceRelease(CGColorSpaceRef space);

CGColorRef CGColorCreateSRGB(CGFloat red, CGFloat green, CGFloat blue, CGFloat alpha);
void CGColorRelease(CGColorRef color);

CGDataProviderRef CGDataProviderCreateWithData(void* info, const void* data, size_t size, CGDataProviderReleaseDataCallback releaseData);
void CGDataProviderRelease(CGDataProviderRef provider);

CGImageRef CGImageCreate(size_t width, size_t height, size_t bitsPerComponent, size_t bitsPerPixel, size_t bytesPerRow, CGColorSpaceRef space,
                         CGBitmapInfo bitmapInfo, CGDataProviderRef provider, const CGFloat* decode, bool shouldInterpolate,
                         CGColorRenderingIntent intent);
size_t CGImageGetWidth(CGImageRef image);
size_t CGImageGetHeight(CGImageRef image);
void CGImageRelease(CGImageRef image);

CGContextRef CGBitmapContextCreate(void* data, size_t width, size_t height, size_t bitsPerComponent, size_t bytesPerRow, CGColorSpaceRef space,
                                   uint32_t bitmapInfo);
void CGContextDrawImage(CGContextRef c, CGRect rect, CGImageRef image);
void CGContextRelease(CGContextRef c);

CFDictionaryRef CGSessionCopyCurrentDictionary(void);
double CGEventSourceSecondsSinceLastEventType(CGEventSourceStateID stateID, CGEventType eventType);

#ifdef __cplusplus
}
#endif
