// Declarations written from Apple's public documentation, for the parse check
// only (tools/check-macos-host.sh); not Apple's header.
#pragma once

typedef double CGFloat;
struct CGPoint { CGFloat x; CGFloat y; };
typedef struct CGPoint CGPoint;
struct CGSize { CGFloat width; CGFloat height; };
typedef struct CGSize CGSize;
struct CGRect { CGPoint origin; CGSize size; };
typedef struct CGRect CGRect;

#ifdef __cplusplus
extern "C" {
#endif
extern const CGSize CGSizeZero;
extern const CGRect CGRectZero;
#ifdef __cplusplus
}
#endif
inline CGRect CGRectMake(CGFloat x, CGFloat y, CGFloat width, CGFloat height) { return CGRect{{x, y}, {width, height}}; }
