#import "Platforms/Apple/AppleServices.h"

#import <AVFoundation/AVFoundation.h>
#import <AppKit/AppKit.h>
#import <CoreGraphics/CoreGraphics.h>
#import <ImageIO/ImageIO.h>
#import <QuartzCore/QuartzCore.h>
#import <os/log.h>

#include <atomic>
#include <mutex>

// A block target for NSTimer that does not keep its owner alive.
@interface HMTimerTarget : NSObject
@property(nonatomic, copy) void (^action)(void);
- (void)fire:(NSTimer*)timer;
@end

@implementation HMTimerTarget
- (void)fire:(NSTimer*)timer
{
    if (self.action)
        self.action();
}
@end

namespace hushmeadows {

namespace {

NSURL* fileURL(const std::filesystem::path& file)
{
    return [NSURL fileURLWithPath:[NSString stringWithUTF8String:file.c_str()]];
}

struct TimerToken final : Cancellable {
    std::atomic<bool> cancelled{false};
    NSTimer* __strong timer = nil;
    void cancel() override
    {
        cancelled.store(true);
        NSTimer* t = timer;
        timer = nil;
        dispatch_async(dispatch_get_main_queue(), ^{
            [t invalidate];
        });
    }
    bool isCancelled() const override { return cancelled.load(); }
};

} // namespace

void AppleMainRunLoop::post(std::function<void()> work)
{
    auto shared = std::make_shared<std::function<void()>>(std::move(work));
    dispatch_async(dispatch_get_main_queue(), ^{
        (*shared)();
    });
}

std::shared_ptr<Cancellable> AppleMainRunLoop::postAfter(double delay, std::function<void()> work)
{
    auto token = std::make_shared<TimerToken>();
    auto shared = std::make_shared<std::function<void()>>(std::move(work));
    std::weak_ptr<TimerToken> weak = token;
    dispatch_after(dispatch_time(DISPATCH_TIME_NOW, static_cast<int64_t>(delay * NSEC_PER_SEC)), dispatch_get_main_queue(), ^{
        auto alive = weak.lock();
        if (alive && !alive->isCancelled())
            (*shared)();
    });
    return token;
}

std::shared_ptr<Cancellable> AppleMainRunLoop::scheduleRepeating(double interval, std::function<void()> work)
{
    auto token = std::make_shared<TimerToken>();
    auto shared = std::make_shared<std::function<void()>>(std::move(work));
    HMTimerTarget* target = [HMTimerTarget new];
    std::weak_ptr<TimerToken> weak = token;
    target.action = ^{
        auto alive = weak.lock();
        if (alive && !alive->isCancelled())
            (*shared)();
    };
    // Common modes, so that fades go on while the system tracks events.
    NSTimer* timer = [NSTimer timerWithTimeInterval:interval target:target selector:@selector(fire:) userInfo:nil repeats:YES];
    [[NSRunLoop mainRunLoop] addTimer:timer forMode:NSRunLoopCommonModes];
    token->timer = timer;
    return token;
}

double AppleMainRunLoop::mediaTime() const { return CACurrentMediaTime(); }

struct AppleDistributedCenter::Observers {
    std::map<Token, id<NSObject>> tokens;
};

AppleDistributedCenter::AppleDistributedCenter()
    : observers_(std::make_unique<Observers>())
{
}

AppleDistributedCenter::~AppleDistributedCenter()
{
    for (auto& [token, observer] : observers_->tokens)
        [[NSDistributedNotificationCenter defaultCenter] removeObserver:observer];
}

AppleDistributedCenter::Token AppleDistributedCenter::addObserver(const std::string& name, Handler handler)
{
    auto shared = std::make_shared<Handler>(std::move(handler));
    id<NSObject> observer = [[NSDistributedNotificationCenter defaultCenter]
        addObserverForName:[NSString stringWithUTF8String:name.c_str()]
                    object:nil
                     queue:[NSOperationQueue mainQueue]
                usingBlock:^(NSNotification* note) {
                    // Written from the enumeration block below, hence __block.
                    __block std::map<std::string, bool> booleans;
                    [note.userInfo enumerateKeysAndObjectsUsingBlock:^(id key, id value, BOOL*) {
                        // Booleans arrive as NSNumber's boolean singletons.
                        if ([key isKindOfClass:[NSString class]] && (value == (id)kCFBooleanTrue || value == (id)kCFBooleanFalse))
                            booleans[((NSString*)key).UTF8String] = static_cast<bool>([value boolValue]);
                    }];
                    (*shared)(booleans);
                }];
    Token token = next_++;
    observers_->tokens[token] = observer;
    return token;
}

void AppleDistributedCenter::removeObserver(Token token)
{
    auto it = observers_->tokens.find(token);
    if (it == observers_->tokens.end())
        return;
    [[NSDistributedNotificationCenter defaultCenter] removeObserver:it->second];
    observers_->tokens.erase(it);
}

void AppleDistributedCenter::post(const Notification& notification)
{
    NSString* object = notification.object ? [NSString stringWithUTF8String:notification.object->c_str()] : nil;
    [[NSDistributedNotificationCenter defaultCenter] postNotificationName:[NSString stringWithUTF8String:notification.name.c_str()]
                                                                   object:object
                                                                 userInfo:nil
                                                       deliverImmediately:YES];
}

std::vector<EngineProcess> AppleSystemSession::engineProcesses() const
{
    struct Process final : WatchedProcess {
        NSRunningApplication* __strong app;
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
    static std::mutex mutex;
    static std::map<std::string, os_log_t> logs;
    os_log_t log;
    {
        std::lock_guard lock(mutex);
        auto& slot = logs[record.category];
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

std::optional<Image> AppleImageDecoder::decode(const std::filesystem::path& file, PixelFormat format) const
{
    CGImageSourceRef source = CGImageSourceCreateWithURL((__bridge CFURLRef)fileURL(file), nullptr);
    if (!source)
        return std::nullopt;
    NSDictionary* options = @{(__bridge NSString*)kCGImageSourceShouldCacheImmediately : @YES};
    CGImageRef image = CGImageSourceCreateImageAtIndex(source, 0, (__bridge CFDictionaryRef)options);
    CFRelease(source);
    if (!image)
        return std::nullopt;
    int width = static_cast<int>(CGImageGetWidth(image));
    int height = static_cast<int>(CGImageGetHeight(image));
    Image out = Image::blank(width, height, format);
    CGColorSpaceRef space = CGColorSpaceCreateWithName(kCGColorSpaceSRGB);
    // BGRA is 32-bit little-endian with alpha first; RGBA is big-endian alpha last.
    CGBitmapInfo info = format == PixelFormat::bgra8 ? (kCGImageAlphaPremultipliedFirst | kCGBitmapByteOrder32Little)
                                                     : (kCGImageAlphaPremultipliedLast | kCGBitmapByteOrder32Big);
    CGContextRef context = CGBitmapContextCreate(out.pixels.data(), width, height, 8, out.bytesPerRow, space, info);
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

std::optional<PixelSize> AppleMediaProbe::imagePixelSize(const std::filesystem::path& file) const
{
    CGImageSourceRef source = CGImageSourceCreateWithURL((__bridge CFURLRef)fileURL(file), nullptr);
    if (!source)
        return std::nullopt;
    CGImageRef image = CGImageSourceCreateImageAtIndex(source, 0, nullptr);
    CFRelease(source);
    if (!image)
        return std::nullopt;
    PixelSize size{static_cast<int>(CGImageGetWidth(image)), static_cast<int>(CGImageGetHeight(image))};
    CGImageRelease(image);
    return size;
}

std::expected<AudioFileInfo, std::string> AppleMediaProbe::audioFileInfo(const std::filesystem::path& file) const
{
    NSError* error = nil;
    AVAudioFile* audio = [[AVAudioFile alloc] initForReading:fileURL(file) error:&error];
    if (!audio)
        return std::unexpected(std::string(error.localizedDescription.UTF8String ?: "not an audio file"));
    AVAudioFormat* format = audio.processingFormat;
    return AudioFileInfo{format.sampleRate, static_cast<int>(format.channelCount), audio.length};
}

std::optional<VideoProbeResult> AppleMediaProbe::probeVideo(const std::filesystem::path& file) const
{
    AVURLAsset* asset = [AVURLAsset URLAssetWithURL:fileURL(file) options:nil];
    // The probe runs off the main thread and waits for each asynchronous load.
    auto load = [&](NSString* key) -> bool {
        dispatch_semaphore_t done = dispatch_semaphore_create(0);
        [asset loadValuesAsynchronouslyForKeys:@[ key ] completionHandler:^{
            dispatch_semaphore_signal(done);
        }];
        dispatch_semaphore_wait(done, DISPATCH_TIME_FOREVER);
        NSError* error = nil;
        return [asset statusOfValueForKey:key error:&error] == AVKeyValueStatusLoaded;
    };
    if (!load(@"tracks"))
        return VideoProbeResult{VideoProbeFailure::notReadable, std::nullopt};
    NSArray<AVAssetTrack*>* tracks = [asset tracksWithMediaType:AVMediaTypeVideo];
    if (tracks.count == 0)
        return VideoProbeResult{VideoProbeFailure::noVideoTrack, std::nullopt};
    if (!load(@"playable"))
        return VideoProbeResult{VideoProbeFailure::notReadable, std::nullopt};
    if (!asset.playable)
        return VideoProbeResult{VideoProbeFailure::notPlayable, std::nullopt};
    if (!load(@"duration"))
        return VideoProbeResult{VideoProbeFailure::notReadable, std::nullopt};
    CMTime duration = asset.duration;
    if (!CMTIME_IS_NUMERIC(duration) || CMTimeGetSeconds(duration) <= 0)
        return VideoProbeResult{VideoProbeFailure::zeroDuration, std::nullopt};
    NSError* error = nil;
    AVAssetReader* reader = [AVAssetReader assetReaderWithAsset:asset error:&error];
    if (!reader)
        return VideoProbeResult{VideoProbeFailure::cannotBeRead, std::nullopt};
    NSDictionary* settings = @{(__bridge NSString*)kCVPixelBufferPixelFormatTypeKey : @(kCVPixelFormatType_32BGRA)};
    AVAssetReaderTrackOutput* output = [AVAssetReaderTrackOutput assetReaderTrackOutputWithTrack:tracks.firstObject outputSettings:settings];
    if (![reader canAddOutput:output])
        return VideoProbeResult{VideoProbeFailure::unsupportedFormat, std::nullopt};
    [reader addOutput:output];
    if (![reader startReading])
        return VideoProbeResult{VideoProbeFailure::decoderCouldNotStart, std::nullopt};
    CMSampleBufferRef sample = [output copyNextSampleBuffer];
    if (!sample) {
        std::optional<std::string> detail;
        if (reader.error)
            detail = std::string(reader.error.localizedDescription.UTF8String ?: "");
        return VideoProbeResult{VideoProbeFailure::noDecodableFrames, detail};
    }
    CFRelease(sample);
    [reader cancelReading];
    return std::nullopt;
}

} // namespace hushmeadows
