// Declarations written from Apple's public documentation, for the parse check
// only (tools/check-macos-host.sh); not Apple's header.
#pragma once

#include <stdint.h>

#ifdef __OBJC__
@protocol OS_os_log;
typedef NSObject<OS_os_log>* os_log_t;
#else
typedef struct os_log_s* os_log_t;
#endif

typedef enum : uint8_t {
    OS_LOG_TYPE_DEFAULT = 0x00,
    OS_LOG_TYPE_INFO = 0x01,
    OS_LOG_TYPE_DEBUG = 0x02,
    OS_LOG_TYPE_ERROR = 0x10,
    OS_LOG_TYPE_FAULT = 0x11,
} os_log_type_t;

#ifdef __cplusplus
extern "C" {
#endif
os_log_t os_log_create(const char* subsystem, const char* category);
// The documented macros take a constant format; this stand-in checks the
// arguments as the system log does.
void hushmeadows_declared_os_log(os_log_t log, os_log_type_t type, const char* format, ...) __attribute__((format(os_log, 3, 4)));
#ifdef __cplusplus
}
#endif

#define os_log_with_type(log, type, format, ...) hushmeadows_declared_os_log(log, type, format, ##__VA_ARGS__)
#define os_log(log, format, ...) hushmeadows_declared_os_log(log, OS_LOG_TYPE_DEFAULT, format, ##__VA_ARGS__)
