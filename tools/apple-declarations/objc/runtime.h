// Declarations written from Apple's public documentation, for the parse check
// only (tools/check-macos-host.sh); not Apple's header.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif
const char** objc_copyClassNamesForImage(const char* image, unsigned int* outCount);
#ifdef __cplusplus
}
#endif
