#import "Platforms/Apple/AppleServices.h"

#import "Platforms/Apple/ApplePaths.h"
#import "Platforms/Apple/ScopedObserver.h"

#import <AppKit/AppKit.h>
#import <CoreGraphics/CoreGraphics.h>
#import <ImageIO/ImageIO.h>
#import <QuartzCore/QuartzCore.h>
#import <os/log.h>

#include "Platforms/Apple/AppleAudioFile.h"
#include "Platforms/Apple/AppleVideoFile.h"
#include "Platforms/Apple/CallbackCounts.h"
#include "Platforms/Apple/ExceptionBarrier.h"
#include "Platforms/Posix/PosixFileAccess.h"
#include "SceneCore/Runtime/ImageHeader.h"

#include <algorithm>
#include <atomic>
#include <mutex>

namespace hushmeadows {

namespace {

// Runs the block on the main thread: at once when already there.
void onMain(dispatch_block_t block)
{
    if ([NSThread isMainThread])
        block();
    else
        dispatch_async(dispatch_get_main_queue(), block);
}

// A timer on the main run loop, in the common modes (so that fades go on
// while the system tracks events). Cancelling invalidates it, so cancelled
// work never wakes the process again: the host keeps the process after a run.
// The timer is added, and invalidated, on the main thread only.
struct TimerToken final : Cancellable, std::enable_shared_from_this<TimerToken> {
    std::atomic<bool> cancelled{false};
    NSTimer* __strong timer = nil;
    void cancel() override
    {
        cancelled.store(true);
        std::weak_ptr<TimerToken> weak = weak_from_this();
        onMain(^{
            if (auto self = weak.lock()) {
                [self->timer invalidate];
                self->timer = nil;
            }
        });
    }
    bool isCancelled() const override { return cancelled.load(); }
    ~TimerToken() override
    {
        NSTimer* last = timer;
        onMain(^{
            [last invalidate];
        });
    }
};

std::shared_ptr<Cancellable> startTimer(double interval, bool repeats, std::function<void()> work, const char* entry)
{
    auto token = std::make_shared<TimerToken>();
    auto shared = std::make_shared<std::function<void()>>(std::move(work));
    std::weak_ptr<TimerToken> weak = token;
    // A one-shot timer keeps its token until it fires or is cancelled:
    // delayed work runs unless cancelled, whether or not the caller kept the
    // handle. A repeating one holds it weakly and ends with the handle.
    std::shared_ptr<TimerToken> kept = repeats ? nullptr : token;
    onMain(^{
        auto owner = kept ? kept : weak.lock();
        if (!owner || owner->isCancelled())
            return;
        owner->timer = [NSTimer timerWithTimeInterval:interval
                                              repeats:repeats
                                                block:^(NSTimer* fired) {
                                                    ++CallbackCounts::timers;
                                                    auto alive = kept ? kept : weak.lock();
                                                    if (!alive || alive->isCancelled()) {
                                                        [fired invalidate];
                                                        return;
                                                    }
                                                    exceptionBarrier(entry, *shared);
                                                }];
        [[NSRunLoop mainRunLoop] addTimer:owner->timer forMode:NSRunLoopCommonModes];
    });
    return token;
}

} // namespace

void AppleMainRunLoop::post(std::function<void()> work)
{
    auto shared = std::make_shared<std::function<void()>>(std::move(work));
    dispatch_async(dispatch_get_main_queue(), ^{
        exceptionBarrier("main queue work", *shared);
    });
}

std::shared_ptr<Cancellable> AppleMainRunLoop::postAfter(double delay, std::function<void()> work)
{
    return startTimer(std::max(delay, 0.0), false, std::move(work), "delayed work");
}

std::shared_ptr<Cancellable> AppleMainRunLoop::scheduleRepeating(double interval, std::function<void()> work)
{
    return startTimer(interval, true, std::move(work), "repeating work");
}

double AppleMainRunLoop::mediaTime() const { return CACurrentMediaTime(); }

namespace {
// Tags each queue with a number of its own, so that a queue knows when it is
// destroyed from its own work (waiting for itself would never end). A number,
// not an address: a freed queue's address may come back for a new one while
// the old one's work still runs.
char queueKey;
std::atomic<std::uintptr_t> nextQueueTag{1};
}

struct AppleSerialQueue::Queue {
    dispatch_queue_t queue;
    void* tag;
};

AppleSerialQueue::AppleSerialQueue(std::string label, Teardown teardown)
    : label_(std::move(label))
    , teardown_(teardown)
    , queue_(std::make_unique<Queue>(Queue{
          dispatch_queue_create(label_.c_str(), dispatch_queue_attr_make_with_qos_class(DISPATCH_QUEUE_SERIAL, QOS_CLASS_USER_INITIATED, 0)),
          reinterpret_cast<void*>(nextQueueTag.fetch_add(1))}))
{
    dispatch_queue_set_specific(queue_->queue, &queueKey, queue_->tag, nullptr);
}

AppleSerialQueue::~AppleSerialQueue()
{
    // Detached: the queue's own reference goes with queue_; each pending
    // block keeps the dispatch queue alive until it has run.
    if (teardown_ == Teardown::detach || dispatch_get_specific(&queueKey) == queue_->tag)
        return;
    // Serial: once this empty block has run, everything before it has.
    dispatch_sync(queue_->queue, ^{
                  });
}

void AppleSerialQueue::async(std::function<void()> work)
{
    auto shared = std::make_shared<std::function<void()>>(std::move(work));
    dispatch_async(queue_->queue, ^{
        exceptionBarrier("queued work", *shared);
    });
}

struct AppleDistributedCenter::Observers {
    std::map<Token, std::unique_ptr<ScopedObserver>> tokens;
};

AppleDistributedCenter::AppleDistributedCenter()
    : observers_(std::make_unique<Observers>())
{
}

AppleDistributedCenter::~AppleDistributedCenter() = default;

AppleDistributedCenter::Token AppleDistributedCenter::addObserver(const std::string& name, Handler handler)
{
    auto shared = std::make_shared<Handler>(std::move(handler));
    auto observer = std::make_unique<ScopedObserver>(
        [NSDistributedNotificationCenter defaultCenter], nsText(name), nil, [NSOperationQueue mainQueue], ^(NSNotification* note) {
            // Written from the enumeration block below, hence __block.
            __block std::map<std::string, bool> booleans;
            [note.userInfo enumerateKeysAndObjectsUsingBlock:^(id key, id value, BOOL* stop) {
                (void)stop;
                // Booleans arrive as NSNumber's boolean singletons.
                if ([key isKindOfClass:[NSString class]] && (value == (id)kCFBooleanTrue || value == (id)kCFBooleanFalse))
                    booleans[utf8Text((NSString*)key)] = static_cast<bool>([value boolValue]);
            }];
            std::map<std::string, bool> values = std::move(booleans);
            auto handler = shared;
            exceptionBarrier("distributed notification", [handler, &values] { (*handler)(values); });
        });
    Token token = next_++;
    observers_->tokens[token] = std::move(observer);
    return token;
}

void AppleDistributedCenter::removeObserver(Token token) { observers_->tokens.erase(token); }

void AppleDistributedCenter::post(const Notification& notification)
{
    NSString* object = notification.object ? nsText(*notification.object) : nil;
    [[NSDistributedNotificationCenter defaultCenter] postNotificationName:nsText(notification.name)
                                                                   object:object
                                                                 userInfo:nil
                                                       deliverImmediately:YES];
}

std::vector<EngineProcess> AppleSystemSession::engineProcesses() const
{
    struct Process final : WatchedProcess {
        NSRunningApplication* __strong app = nil;
        bool isTerminated() const override { return app.terminated; }
    };
    std::vector<EngineProcess> result;
    NSString* engine = @(engineBundleIdentifier);
    for (NSRunningApplication* app in [NSWorkspace sharedWorkspace].runningApplications) {
        if (![app.bundleIdentifier isEqualToString:engine])
            continue;
        auto process = std::make_shared<Process>();
        process->app = app;
        std::optional<double> launched;
        if (app.launchDate)
            launched = app.launchDate.timeIntervalSinceReferenceDate;
        result.push_back(EngineProcess{process, launched});
    }
    return result;
}

std::optional<bool> AppleSystemSession::screenIsLocked() const
{
    CFDictionaryRef session = CGSessionCopyCurrentDictionary();
    if (!session)
        return std::nullopt;
    std::optional<bool> locked;
    CFTypeRef value = CFDictionaryGetValue(session, CFSTR("CGSSessionScreenIsLocked"));
    if (value && CFGetTypeID(value) == CFBooleanGetTypeID())
        locked = CFBooleanGetValue((CFBooleanRef)value);
    CFRelease(session);
    return locked;
}

double AppleSystemSession::idleSeconds() const
{
    return CGEventSourceSecondsSinceLastEventType(kCGEventSourceStateCombinedSessionState, kCGAnyInputEventType);
}

void AppleLogSink::write(const LogRecord& record)
{
    // Kept for the life of the process: queues log until it ends.
    static auto* mutex = new std::mutex;
    static auto* logs = new std::map<std::string, os_log_t>;
    os_log_t log;
    {
        std::lock_guard lock(*mutex);
        auto& slot = (*logs)[record.category];
        if (!slot)
            slot = os_log_create(record.subsystem.c_str(), record.category.c_str());
        log = slot;
    }
    os_log_type_t type = OS_LOG_TYPE_DEFAULT;
    switch (record.level) {
    case LogLevel::debug: type = OS_LOG_TYPE_DEBUG; break;
    case LogLevel::info: type = OS_LOG_TYPE_INFO; break;
    case LogLevel::defaultLevel: type = OS_LOG_TYPE_DEFAULT; break;
    case LogLevel::error: type = OS_LOG_TYPE_ERROR; break;
    case LogLevel::fault: type = OS_LOG_TYPE_FAULT; break;
    }
    std::string line = record.render(Log::revealsPrivate());
    os_log_with_type(log, type, "%{public}s", line.c_str());
}

namespace {

// An image source over a local regular file, inside its package when it is
// a loaded package's; nothing for anything else (a pipe would block Image
// I/O's read, a device would never end).
CGImageSourceRef openImage(const std::filesystem::path& file)
{
    auto opened = PosixFileAccess::openedFilePath(file);
    if (!opened)
        return nullptr;
    NSDictionary* options = @{(__bridge NSString*)kCGImageSourceShouldCache : @NO};
    return CGImageSourceCreateWithURL((__bridge CFURLRef)fileURL(*opened), (__bridge CFDictionaryRef)options);
}

// The size in the first image's properties; Image I/O reads them from the
// header without decoding a pixel.
std::optional<PixelSize> propertiesSize(CGImageSourceRef source)
{
    std::optional<PixelSize> size;
    CFDictionaryRef properties = CGImageSourceCopyPropertiesAtIndex(source, 0, nullptr);
    if (!properties)
        return size;
    auto number = [properties](CFStringRef key) -> std::optional<int> {
        CFTypeRef value = CFDictionaryGetValue(properties, key);
        int result = 0;
        if (value && CFGetTypeID(value) == CFNumberGetTypeID() && CFNumberGetValue((CFNumberRef)value, kCFNumberIntType, &result))
            return result;
        return std::nullopt;
    };
    auto width = number(kCGImagePropertyPixelWidth);
    auto height = number(kCGImagePropertyPixelHeight);
    if (width && height && *width > 0 && *height > 0)
        size = PixelSize{*width, *height};
    CFRelease(properties);
    return size;
}

bool tooLarge(PixelSize size) { return size.decodedBytes() > maximumDecodedImageBytes; }

} // namespace

std::optional<PixelSize> AppleMediaProbe::imagePixelSize(const std::filesystem::path& file) const
{
    // PNG and JPEG state their size in their first bytes: no decoder needed.
    if (auto ends = PosixFileAccess::ends(file, 64 * 1024, 12)) {
        if (auto stated = imageHeaderSize(ends->head, ends->tail))
            return stated;
    }
    CGImageSourceRef source = openImage(file);
    if (!source)
        return std::nullopt;
    auto size = propertiesSize(source);
    CFRelease(source);
    return size;
}

std::optional<Image> AppleImageDecoder::decode(const std::filesystem::path& file, PixelFormat format) const
{
    CGImageSourceRef source = openImage(file);
    if (!source)
        return std::nullopt;
    // Judged on the header, before any pixel is decoded; and again on the
    // image, whose size a lying header does not bind.
    auto stated = propertiesSize(source);
    if (!stated || tooLarge(*stated)) {
        CFRelease(source);
        return std::nullopt;
    }
    NSDictionary* options = @{(__bridge NSString*)kCGImageSourceShouldCacheImmediately : @YES};
    CGImageRef image = CGImageSourceCreateImageAtIndex(source, 0, (__bridge CFDictionaryRef)options);
    CFRelease(source);
    if (!image)
        return std::nullopt;
    int width = static_cast<int>(CGImageGetWidth(image));
    int height = static_cast<int>(CGImageGetHeight(image));
    if (width <= 0 || height <= 0 || tooLarge(PixelSize{width, height})) {
        CGImageRelease(image);
        return std::nullopt;
    }
    Image out = Image::blank(width, height, format);
    CGColorSpaceRef space = CGColorSpaceCreateWithName(kCGColorSpaceSRGB);
    // BGRA is 32-bit little-endian with alpha first; RGBA is big-endian alpha last.
    CGBitmapInfo info = format == PixelFormat::bgra8 ? ((CGBitmapInfo)kCGImageAlphaPremultipliedFirst | kCGBitmapByteOrder32Little)
                                                     : ((CGBitmapInfo)kCGImageAlphaPremultipliedLast | kCGBitmapByteOrder32Big);
    CGContextRef context = CGBitmapContextCreate(out.pixels.data(), static_cast<size_t>(width), static_cast<size_t>(height), 8,
                                                 out.bytesPerRow, space, info);
    CGColorSpaceRelease(space);
    if (!context) {
        CGImageRelease(image);
        return std::nullopt;
    }
    CGContextDrawImage(context, CGRectMake(0, 0, width, height), image);
    CGContextRelease(context);
    CGImageRelease(image);
    return out;
}

std::expected<AudioFileInfo, std::string> AppleMediaProbe::audioFileInfo(const std::filesystem::path& file) const
{
    return AppleAudioFile::inspect(file);
}

std::optional<VideoProbeResult> AppleMediaProbe::probeVideo(const std::filesystem::path& file) const
{
    return AppleVideoFile::probe(file);
}

} // namespace hushmeadows
