// Declarations written from Apple's public documentation, for the parse check
// only (tools/check-macos-host.sh); not Apple's header.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <CoreGraphics/CGGeometry.h>

#if defined(HUSHMEADOWS_DECLARE_INTEL)
typedef signed char BOOL; // x86_64
#else
typedef bool BOOL; // arm64
#endif
#define YES __objc_yes
#define NO __objc_no
#define Nil nullptr
#define nil nullptr

typedef long NSInteger;
typedef unsigned long NSUInteger;
typedef double NSTimeInterval;
typedef struct objc_class* Class;
typedef struct objc_selector* SEL;

#define NS_ENUM(type, name) enum name : type name; enum name : type
#define NS_OPTIONS(type, name) type name; enum : type

typedef CGRect NSRect;
typedef CGSize NSSize;
typedef CGPoint NSPoint;
inline NSRect NSMakeRect(CGFloat x, CGFloat y, CGFloat w, CGFloat h) { return NSRect{{x, y}, {w, h}}; }

@class NSString, NSArray, NSDictionary, NSError, NSURL, NSNotification, NSOperationQueue, NSDate, NSCoder, NSRunLoop;

@protocol NSObject
- (BOOL)isEqual:(id)object;
- (BOOL)isKindOfClass:(Class)aClass;
- (BOOL)respondsToSelector:(SEL)aSelector;
@end

__attribute__((objc_root_class))
@interface NSObject <NSObject> {
    Class isa;
}
+ (instancetype)alloc;
+ (instancetype)new;
- (instancetype)init;
+ (Class)class;
- (Class)class;
+ (BOOL)isSubclassOfClass:(Class)aClass;
- (BOOL)isEqual:(id)object;
- (BOOL)isKindOfClass:(Class)aClass;
- (BOOL)respondsToSelector:(SEL)aSelector;
@end

@protocol NSCopying
- (id)copyWithZone:(void*)zone;
@end

typedef struct {
    unsigned long state;
    id __unsafe_unretained* itemsPtr;
    unsigned long* mutationsPtr;
    unsigned long extra[5];
} NSFastEnumerationState;

@protocol NSFastEnumeration
- (NSUInteger)countByEnumeratingWithState:(NSFastEnumerationState*)state objects:(id __unsafe_unretained[])buffer count:(NSUInteger)len;
@end

// Key-value coding, as the harness reads the bundle's diagnostics.
@interface NSObject (NSKeyValueCoding)
- (id)valueForKey:(NSString*)key;
+ (id)valueForKey:(NSString*)key;
@end

typedef NSUInteger NSStringEncoding;
enum : NSStringEncoding {
    NSUTF8StringEncoding = 4,
    NSISOLatin1StringEncoding = 5,
};

@interface NSString : NSObject <NSCopying>
+ (instancetype)stringWithUTF8String:(const char*)nullTerminatedCString;
- (instancetype)initWithBytes:(const void*)bytes length:(NSUInteger)len encoding:(NSStringEncoding)encoding;
@property(readonly) const char* UTF8String;
@property(readonly) NSUInteger length;
- (BOOL)isEqualToString:(NSString*)aString;
- (NSString*)stringByReplacingOccurrencesOfString:(NSString*)target withString:(NSString*)replacement;
@end

#ifdef __cplusplus
extern "C" {
#endif
NSString* NSStringFromClass(Class aClass);
#ifdef __cplusplus
}
#endif

@interface NSNumber : NSObject <NSCopying>
+ (NSNumber*)numberWithBool:(BOOL)value;
+ (NSNumber*)numberWithInt:(int)value;
+ (NSNumber*)numberWithUnsignedInt:(unsigned int)value;
+ (NSNumber*)numberWithLong:(long)value;
+ (NSNumber*)numberWithUnsignedLong:(unsigned long)value;
+ (NSNumber*)numberWithLongLong:(long long)value;
+ (NSNumber*)numberWithUnsignedLongLong:(unsigned long long)value;
+ (NSNumber*)numberWithFloat:(float)value;
+ (NSNumber*)numberWithDouble:(double)value;
+ (NSNumber*)numberWithInteger:(NSInteger)value;
+ (NSNumber*)numberWithUnsignedInteger:(NSUInteger)value;
@property(readonly) BOOL boolValue;
@property(readonly) int intValue;
@property(readonly) long longValue;
@property(readonly) double doubleValue;
@end

@interface NSNull : NSObject
+ (NSNull*)null;
@end

@interface NSArray<__covariant ObjectType> : NSObject <NSCopying, NSFastEnumeration>
+ (instancetype)array;
+ (instancetype)arrayWithObject:(ObjectType)anObject;
+ (instancetype)arrayWithObjects:(const ObjectType __unsafe_unretained[])objects count:(NSUInteger)cnt;
@property(readonly) NSUInteger count;
@property(readonly) ObjectType firstObject;
- (ObjectType)objectAtIndexedSubscript:(NSUInteger)idx;
@end

@interface NSMutableArray<ObjectType> : NSArray<ObjectType>
- (void)addObject:(ObjectType)anObject;
- (void)insertObject:(ObjectType)anObject atIndex:(NSUInteger)index;
@end

@interface NSDictionary<__covariant KeyType, __covariant ObjectType> : NSObject <NSCopying, NSFastEnumeration>
+ (instancetype)dictionary;
+ (instancetype)dictionaryWithObjects:(const ObjectType __unsafe_unretained[])objects
                              forKeys:(const KeyType<NSCopying> __unsafe_unretained[])keys
                                count:(NSUInteger)cnt;
@property(readonly) NSUInteger count;
- (ObjectType)objectForKeyedSubscript:(KeyType)key;
- (void)enumerateKeysAndObjectsUsingBlock:(void (^)(KeyType key, ObjectType obj, BOOL* stop))block;
@end

@interface NSMutableDictionary<KeyType, ObjectType> : NSDictionary<KeyType, ObjectType>
- (void)setObject:(ObjectType)obj forKeyedSubscript:(KeyType<NSCopying>)key;
@end

typedef struct _NSRange {
    NSUInteger location;
    NSUInteger length;
} NSRange;

@interface NSValue : NSObject <NSCopying>
@end

@interface NSError : NSObject
@property(readonly, copy) NSString* localizedDescription;
@property(readonly) NSInteger code;
@end

typedef NSString* NSExceptionName;
@interface NSException : NSObject
@property(readonly, copy) NSExceptionName name;
@property(readonly, copy) NSString* reason;
@end

@interface NSDate : NSObject
+ (instancetype)date;
+ (instancetype)dateWithTimeIntervalSinceNow:(NSTimeInterval)secs;
@property(readonly) NSTimeInterval timeIntervalSinceReferenceDate;
@property(readonly) NSTimeInterval timeIntervalSinceNow;
@end

@interface NSURL : NSObject <NSCopying>
+ (NSURL*)fileURLWithPath:(NSString*)path isDirectory:(BOOL)isDir;
+ (NSURL*)fileURLWithFileSystemRepresentation:(const char*)path isDirectory:(BOOL)isDir relativeToURL:(NSURL*)baseURL;
- (NSURL*)URLByAppendingPathComponent:(NSString*)pathComponent;
- (BOOL)getFileSystemRepresentation:(char*)buffer maxLength:(NSUInteger)maxBufferLength;
@property(readonly, copy) NSString* path;
@property(readonly, getter=isFileURL) BOOL fileURL;
@end

@interface NSBundle : NSObject
+ (NSBundle*)mainBundle;
+ (NSBundle*)bundleForClass:(Class)aClass;
+ (instancetype)bundleWithPath:(NSString*)path;
- (BOOL)load;
@property(readonly) Class principalClass;
@property(readonly, copy) NSDictionary<NSString*, id>* infoDictionary;
@property(readonly, copy) NSURL* resourceURL;
@property(readonly, copy) NSString* bundlePath;
@property(readonly, copy) NSString* executablePath;
@end

@interface NSFileManager : NSObject
@property(class, readonly, strong) NSFileManager* defaultManager;
- (BOOL)fileExistsAtPath:(NSString*)path;
@end

@interface NSThread : NSObject
@property(class, readonly) BOOL isMainThread;
@end

@interface NSCoder : NSObject
@end

typedef NSString* NSNotificationName;

@interface NSNotification : NSObject
@property(readonly, copy) NSNotificationName name;
@property(readonly, strong) id object;
@property(readonly, copy) NSDictionary* userInfo;
@end

@interface NSOperationQueue : NSObject
@property(class, readonly, strong) NSOperationQueue* mainQueue;
@end

@interface NSNotificationCenter : NSObject
@property(class, readonly, strong) NSNotificationCenter* defaultCenter;
- (id<NSObject>)addObserverForName:(NSNotificationName)name
                            object:(id)obj
                             queue:(NSOperationQueue*)queue
                        usingBlock:(void (^)(NSNotification* notification))block;
- (void)removeObserver:(id)observer;
- (void)postNotificationName:(NSNotificationName)aName object:(id)anObject userInfo:(NSDictionary*)aUserInfo;
@end

@interface NSDistributedNotificationCenter : NSNotificationCenter
+ (NSDistributedNotificationCenter*)defaultCenter;
- (void)postNotificationName:(NSNotificationName)name object:(NSString*)object userInfo:(NSDictionary*)userInfo deliverImmediately:(BOOL)deliverImmediately;
@end

typedef NSString* NSRunLoopMode;
extern NSRunLoopMode const NSDefaultRunLoopMode;
extern NSRunLoopMode const NSRunLoopCommonModes;

@interface NSTimer : NSObject
+ (NSTimer*)timerWithTimeInterval:(NSTimeInterval)interval repeats:(BOOL)repeats block:(void (^)(NSTimer* timer))block;
+ (NSTimer*)scheduledTimerWithTimeInterval:(NSTimeInterval)interval repeats:(BOOL)repeats block:(void (^)(NSTimer* timer))block;
- (void)invalidate;
@property(readonly, getter=isValid) BOOL valid;
@end

@interface NSRunLoop : NSObject
@property(class, readonly, strong) NSRunLoop* mainRunLoop;
@property(class, readonly, strong) NSRunLoop* currentRunLoop;
- (void)addTimer:(NSTimer*)timer forMode:(NSRunLoopMode)mode;
- (void)runUntilDate:(NSDate*)limitDate;
- (BOOL)runMode:(NSRunLoopMode)mode beforeDate:(NSDate*)limitDate;
@end

@interface NSProcessInfo : NSObject
@property(class, readonly, strong) NSProcessInfo* processInfo;
@property(readonly) NSTimeInterval systemUptime;
@end

#include <dispatch/dispatch.h>
