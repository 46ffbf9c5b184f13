// Declarations written from Apple's public documentation, for the parse check
// only (tools/check-macos-host.sh); not Apple's header.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

typedef struct __CVBuffer* CVBufferRef;
typedef CVBufferRef CVImageBufferRef;
typedef CVImageBufferRef CVPixelBufferRef;
typedef int32_t CVReturn;
typedef uint64_t CVOptionFlags;
typedef CVOptionFlags CVPixelBufferLockFlags;
enum : CVPixelBufferLockFlags { kCVPixelBufferLock_ReadOnly = 0x00000001 };
enum : OSType { kCVPixelFormatType_32BGRA = 'BGRA' };

#ifdef __cplusplus
extern "C" {
#endif
extern const CFStringRef kCVPixelBufferPixelFormatTypeKey;
extern const CFStringRef kCVPixelBufferIOSurfacePropertiesKey;
size_t CVPixelBufferGetWidth(CVPixelBufferRef pixelBuffer);
size_t CVPixelBufferGetHeight(CVPixelBufferRef pixelBuffer);
size_t CVPixelBufferGetBytesPerRow(CVPixelBufferRef pixelBuffer);
OSType CVPixelBufferGetPixelFormatType(CVPixelBufferRef pixelBuffer);
void* CVPixelBufferGetBaseAddress(CVPixelBufferRef pixelBuffer);
CVReturn CVPixelBufferLockBaseAddress(CVPixelBufferRef pixelBuffer, CVPixelBufferLockFlags lockFlags);
CVReturn CVPixelBufferUnlockBaseAddress(CVPixelBufferRef pixelBuffer, CVPixelBufferLockFlags unlockFlags);
#ifdef __cplusplus
}
#endif
