// Declarations written from Apple's public documentation, for the parse check
// only (tools/check-macos-host.sh); not Apple's header.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <CoreVideo/CoreVideo.h>

typedef int64_t CMTimeValue;
typedef int32_t CMTimeScale;
typedef int64_t CMTimeEpoch;
typedef enum : uint32_t {
    kCMTimeFlags_Valid = 1UL << 0,
    kCMTimeFlags_HasBeenRounded = 1UL << 1,
    kCMTimeFlags_PositiveInfinity = 1UL << 2,
    kCMTimeFlags_NegativeInfinity = 1UL << 3,
    kCMTimeFlags_Indefinite = 1UL << 4,
    kCMTimeFlags_ImpliedValueFlagsMask = kCMTimeFlags_PositiveInfinity | kCMTimeFlags_NegativeInfinity | kCMTimeFlags_Indefinite,
} CMTimeFlags;

typedef struct {
    CMTimeValue value;
    CMTimeScale timescale;
    CMTimeFlags flags;
    CMTimeEpoch epoch;
} CMTime;

typedef struct {
    CMTime start;
    CMTime duration;
} CMTimeRange;

typedef struct opaqueCMSampleBuffer* CMSampleBufferRef;

#ifdef __cplusplus
extern "C" {
#endif
extern const CMTime kCMTimeZero;
extern const CMTime kCMTimeInvalid;
extern const CMTime kCMTimePositiveInfinity;
Float64 CMTimeGetSeconds(CMTime time);
CMTime CMTimeMake(int64_t value, int32_t timescale);
CMTimeRange CMTimeRangeMake(CMTime start, CMTime duration);
CVImageBufferRef CMSampleBufferGetImageBuffer(CMSampleBufferRef sbuf);
CMTime CMSampleBufferGetPresentationTimeStamp(CMSampleBufferRef sbuf);
CMTime CMSampleBufferGetDuration(CMSampleBufferRef sbuf);
#ifdef __cplusplus
}
#endif

#define CMTIME_IS_VALID(time) ((Boolean)(((time).flags & kCMTimeFlags_Valid) != 0))
#define CMTIME_IS_NUMERIC(time) \
    ((Boolean)(((time).flags & (kCMTimeFlags_Valid | kCMTimeFlags_ImpliedValueFlagsMask)) == kCMTimeFlags_Valid))

#ifdef __OBJC__
#import <Foundation/Foundation.h>
@interface NSValue (CMTimeRange)
+ (NSValue*)valueWithCMTimeRange:(CMTimeRange)timeRange;
@property(readonly) CMTimeRange CMTimeRangeValue;
@end
#endif
