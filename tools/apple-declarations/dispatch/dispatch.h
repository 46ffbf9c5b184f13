// Declarations written from Apple's public documentation, for the parse check
// only (tools/check-macos-host.sh); not Apple's header.
#pragma once

#include <stdint.h>

#ifdef __OBJC__
@protocol OS_dispatch_object;
typedef id dispatch_object_t;
@protocol OS_dispatch_queue;
typedef NSObject<OS_dispatch_queue>* dispatch_queue_t;
@protocol OS_dispatch_queue_attr;
typedef NSObject<OS_dispatch_queue_attr>* dispatch_queue_attr_t;
@protocol OS_dispatch_semaphore;
typedef NSObject<OS_dispatch_semaphore>* dispatch_semaphore_t;
#else
typedef struct dispatch_queue_s* dispatch_queue_t;
typedef struct dispatch_queue_attr_s* dispatch_queue_attr_t;
typedef struct dispatch_semaphore_s* dispatch_semaphore_t;
#endif

typedef void (^dispatch_block_t)(void);
typedef uint64_t dispatch_time_t;
typedef void (*dispatch_function_t)(void*);

#define DISPATCH_TIME_NOW (0ull)
#define DISPATCH_TIME_FOREVER (~0ull)
#define NSEC_PER_SEC 1000000000ull
#define DISPATCH_QUEUE_SERIAL nullptr

typedef enum : unsigned int {
    QOS_CLASS_USER_INTERACTIVE = 0x21,
    QOS_CLASS_USER_INITIATED = 0x19,
    QOS_CLASS_DEFAULT = 0x15,
    QOS_CLASS_UTILITY = 0x11,
    QOS_CLASS_BACKGROUND = 0x09,
} qos_class_t;

#ifdef __cplusplus
extern "C" {
#endif

dispatch_queue_t dispatch_get_main_queue(void);
dispatch_queue_t dispatch_queue_create(const char* label, dispatch_queue_attr_t attr);
dispatch_queue_attr_t dispatch_queue_attr_make_with_qos_class(dispatch_queue_attr_t attr, qos_class_t qos_class, int relative_priority);
void dispatch_async(dispatch_queue_t queue, dispatch_block_t block);
void dispatch_sync(dispatch_queue_t queue, dispatch_block_t block);
void dispatch_after(dispatch_time_t when, dispatch_queue_t queue, dispatch_block_t block);
dispatch_time_t dispatch_time(dispatch_time_t when, int64_t delta);
void dispatch_queue_set_specific(dispatch_queue_t queue, const void* key, void* context, dispatch_function_t destructor);
void* dispatch_get_specific(const void* key);
dispatch_semaphore_t dispatch_semaphore_create(intptr_t value);
intptr_t dispatch_semaphore_wait(dispatch_semaphore_t dsema, dispatch_time_t timeout);
intptr_t dispatch_semaphore_signal(dispatch_semaphore_t dsema);

#ifdef __cplusplus
}
#endif
