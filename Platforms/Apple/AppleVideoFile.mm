#import "Platforms/Apple/AppleVideoFile.h"

#import "Platforms/Apple/ApplePaths.h"

#import <AVFoundation/AVFoundation.h>
#import <CoreMedia/CoreMedia.h>
#import <CoreVideo/CoreVideo.h>

#include "Platforms/Posix/PosixFileAccess.h"
#include "SceneCore/Worlds/WorldPackage.h"

#include <cmath>
#include <cstring>

namespace hushmeadows {

namespace {

VideoProbeResult failure(VideoProbeFailure failure, std::optional<std::string> detail = std::nullopt)
{
    return VideoProbeResult{failure, std::move(detail)};
}

// AVFoundation may raise for a file it cannot make sense of; that is a file
// that fails for the reason given, not an exception for the decoding queue.
template <typename Step>
auto raisedAs(VideoProbeFailure reason, Step&& step) -> decltype(step())
{
    @try {
        return step();
    } @catch (NSException* exception) {
        return std::unexpected(failure(reason, utf8Text(exception.reason)));
    }
}

// Waits for a load that start begins and that calls the block it is given
// once done; at most loadTimeout, after which the asset's loading is
// cancelled. False when the wait ran out. The block may still run later: it
// holds what it writes.
bool awaitLoad(AVAsset* asset, void (^start)(dispatch_block_t finished))
{
    dispatch_semaphore_t done = dispatch_semaphore_create(0);
    start(^{
        dispatch_semaphore_signal(done);
    });
    auto timeout = dispatch_time(DISPATCH_TIME_NOW, static_cast<int64_t>(AppleVideoFile::loadTimeout * NSEC_PER_SEC));
    if (dispatch_semaphore_wait(done, timeout) == 0)
        return true;
    [asset cancelLoading];
    return false;
}

// The first video track.
std::expected<AVAssetTrack*, VideoProbeResult> loadVideoTrack(AVURLAsset* asset)
{
    __block NSArray<AVAssetTrack*>* found = nil;
    __block NSError* loadError = nil;
    bool loaded = awaitLoad(asset, ^(dispatch_block_t finished) {
        [asset loadTracksWithMediaType:AVMediaTypeVideo
                     completionHandler:^(NSArray<AVAssetTrack*>* tracks, NSError* error) {
                         found = tracks;
                         loadError = error;
                         finished();
                     }];
    });
    if (!loaded)
        return std::unexpected(failure(VideoProbeFailure::notReadable, std::string("loading the tracks took too long")));
    if (!found)
        return std::unexpected(failure(VideoProbeFailure::notReadable, errorText(loadError, "the tracks cannot be read")));
    if (found.count == 0)
        return std::unexpected(failure(VideoProbeFailure::noVideoTrack));
    return found.firstObject;
}

// Whether the asset plays on this Mac, then its duration in seconds (more
// than zero; an indefinite or invalid one is not). A value that fails to load
// makes the file unreadable.
std::expected<double, VideoProbeResult> loadPlayableDuration(AVURLAsset* asset)
{
    NSString* playableKey = @"playable";
    NSString* durationKey = @"duration";
    bool loaded = awaitLoad(asset, ^(dispatch_block_t finished) {
        [asset loadValuesAsynchronouslyForKeys:@[ playableKey, durationKey ] completionHandler:finished];
    });
    if (!loaded)
        return std::unexpected(failure(VideoProbeFailure::notReadable, std::string("loading the playability took too long")));
    auto unloaded = [asset](NSString* key) -> std::optional<VideoProbeResult> {
        NSError* error = nil;
        if ([asset statusOfValueForKey:key error:&error] == AVKeyValueStatusLoaded)
            return std::nullopt;
        return failure(VideoProbeFailure::notReadable, errorText(error, "a property cannot be loaded"));
    };
    if (auto problem = unloaded(playableKey))
        return std::unexpected(*problem);
    if (!asset.playable)
        return std::unexpected(failure(VideoProbeFailure::notPlayable));
    if (auto problem = unloaded(durationKey))
        return std::unexpected(*problem);
    const CMTime duration = asset.duration;
    const double seconds = CMTIME_IS_NUMERIC(duration) ? CMTimeGetSeconds(duration) : 0;
    if (!(seconds > 0))
        return std::unexpected(failure(VideoProbeFailure::zeroDuration));
    return seconds;
}

struct Started {
    AVAssetReader* reader = nil;
    AVAssetReaderTrackOutput* output = nil;
};

struct Loaded {
    AVAssetTrack* track = nil;
    double duration = 0;
};

// The loads in the order validation gives its reasons: tracks, then
// playability and duration.
std::expected<Loaded, VideoProbeResult> loadAsset(AVURLAsset* asset)
{
    return raisedAs(VideoProbeFailure::notReadable, [asset]() -> std::expected<Loaded, VideoProbeResult> {
        auto track = loadVideoTrack(asset);
        if (!track)
            return std::unexpected(track.error());
        auto duration = loadPlayableDuration(asset);
        if (!duration)
            return std::unexpected(duration.error());
        return Loaded{*track, *duration};
    });
}

// How the reader's output is used: a probe reads one frame; a video that
// loops reads pass after pass from the same output.
enum class Reading { once, looping };

std::expected<Started, VideoProbeResult> startReaderOnce(AVURLAsset* asset, AVAssetTrack* track, Reading reading)
{
    NSError* error = nil;
    Started started;
    started.reader = [[AVAssetReader alloc] initWithAsset:asset error:&error];
    if (!started.reader)
        return std::unexpected(failure(VideoProbeFailure::cannotBeRead, errorText(error, "no reader")));
    // BGRA in IOSurface-backed buffers: the picture path's format.
    NSDictionary* settings = @{
        (__bridge NSString*)kCVPixelBufferPixelFormatTypeKey : @(kCVPixelFormatType_32BGRA),
        (__bridge NSString*)kCVPixelBufferIOSurfacePropertiesKey : @{},
    };
    started.output = [[AVAssetReaderTrackOutput alloc] initWithTrack:track outputSettings:settings];
    // Each frame is copied out before the next is asked for.
    started.output.alwaysCopiesSampleData = NO;
    // A looping video reads its next pass from this same output, whose
    // decoder is already running (AVAssetReader itself cannot seek).
    started.output.supportsRandomAccess = reading == Reading::looping;
    if (![started.reader canAddOutput:started.output])
        return std::unexpected(failure(VideoProbeFailure::unsupportedFormat));
    [started.reader addOutput:started.output];
    if (![started.reader startReading])
        return std::unexpected(failure(VideoProbeFailure::decoderCouldNotStart, errorText(started.reader.error, "the reader did not start")));
    return started;
}

// A track AVFoundation cannot read with these settings makes it raise.
std::expected<Started, VideoProbeResult> startReader(AVURLAsset* asset, AVAssetTrack* track, Reading reading)
{
    return raisedAs(VideoProbeFailure::cannotBeRead, [asset, track, reading] { return startReaderOnce(asset, track, reading); });
}

// Starts the output over at the beginning of the file, after it has given
// its last sample. False when AVFoundation refuses (it raises for a misuse).
bool readFromStart(AVAssetReaderTrackOutput* output, CMTime duration)
{
    @try {
        [output resetForReadingTimeRanges:@[ [NSValue valueWithCMTimeRange:CMTimeRangeMake(kCMTimeZero, duration)] ]];
        return true;
    } @catch (NSException* exception) {
        (void)exception;
        return false;
    }
}

// The next sample that holds a picture, retained (the caller releases it);
// nullptr at the end or on failure.
CMSampleBufferRef nextPicture(AVAssetReaderTrackOutput* output)
{
    for (;;) {
        CMSampleBufferRef sample = [output copyNextSampleBuffer];
        if (!sample || CMSampleBufferGetImageBuffer(sample))
            return sample;
        CFRelease(sample);
    }
}

// The reason package validation gives, with what AVFoundation said.
std::string describe(const VideoProbeResult& result)
{
    std::string reason = videoProbeReason(result);
    // Undecodable frames already give the reader's text as their reason.
    if (result.detail && result.failure != VideoProbeFailure::noDecodableFrames)
        reason += ": " + *result.detail;
    return reason;
}

// The reader's error when it stopped without a frame.
VideoProbeResult noFrames(AVAssetReader* reader)
{
    return failure(VideoProbeFailure::noDecodableFrames, reader.error ? std::optional<std::string>(errorText(reader.error, "")) : std::nullopt);
}

} // namespace

// Reads one picture ahead of the one handed out. So the end of a pass is
// known while its last frame is handed out, and the output starts over at
// once: the decoder works on the next pass's first frames while the frames
// decoded ahead of the picture still show, and rewind() at the loop point
// costs nothing. (In a playlist, where the file is dropped at its end
// instead, that costs a frame or two of decoding.) Should AVFoundation refuse
// to start over, rewind() falls back to a new reader.
struct AppleVideoFile::Reader {
    AVURLAsset* asset = nil;
    AVAssetTrack* track = nil;
    CMTime duration = kCMTimeInvalid;
    AVAssetReader* reader = nil;
    AVAssetReaderTrackOutput* output = nil;
    // The next picture to hand out (the first one is read by open() to learn
    // the size).
    CMSampleBufferRef pending = nullptr;
    // The pass has ended: readFrame() says so until rewind().
    bool passEnded = false;
    // The output already reads the next pass.
    bool startedOver = false;

    ~Reader()
    {
        dropPending();
        [reader cancelReading];
    }
    void dropPending()
    {
        if (pending)
            CFRelease(pending);
        pending = nullptr;
    }
};

AppleVideoFile::AppleVideoFile(std::unique_ptr<Reader> reader) : reader_(std::move(reader)) {}

AppleVideoFile::~AppleVideoFile() = default;

std::expected<std::unique_ptr<VideoFile>, std::string> AppleVideoFile::open(const std::filesystem::path& file)
{
    // Only a local regular file: never a pipe, a device or a network
    // location; a loaded package's file only inside the folder that was loaded.
    auto opened = PosixFileAccess::openedFilePath(file);
    if (!opened)
        return std::unexpected(std::string("not a regular file, or outside its package"));
    auto reader = std::make_unique<Reader>();
    reader->asset = [AVURLAsset URLAssetWithURL:fileURL(*opened) options:nil];
    auto loaded = loadAsset(reader->asset);
    if (!loaded)
        return std::unexpected(describe(loaded.error()));
    reader->track = loaded->track;
    // The loaded length, rounded up to a microsecond: the range reaches the
    // last frame's end.
    reader->duration = CMTimeMake(static_cast<int64_t>(std::ceil(loaded->duration * 1'000'000)), 1'000'000);
    auto started = startReader(reader->asset, reader->track, Reading::looping);
    if (!started)
        return std::unexpected(describe(started.error()));
    reader->reader = started->reader;
    reader->output = started->output;
    reader->pending = nextPicture(reader->output);
    if (!reader->pending)
        return std::unexpected(describe(noFrames(reader->reader)));

    CVImageBufferRef image = CMSampleBufferGetImageBuffer(reader->pending);
    PixelSize size{static_cast<int>(CVPixelBufferGetWidth(image)), static_cast<int>(CVPixelBufferGetHeight(image))};
    if (size.width <= 0 || size.height <= 0 || size.decodedBytes() > maximumDecodedImageBytes)
        return std::unexpected(std::string("the picture is too large: over 72 MiB once decoded"));
    CMTime frameDuration = CMSampleBufferGetDuration(reader->pending);
    double seconds = CMTIME_IS_NUMERIC(frameDuration) ? CMTimeGetSeconds(frameDuration) : 0;

    std::unique_ptr<AppleVideoFile> video(new AppleVideoFile(std::move(reader)));
    video->size_ = size;
    video->duration_ = loaded->duration;
    video->frameRate_ = seconds > 0 ? 1.0 / seconds : 0;
    return video;
}

std::expected<std::optional<VideoFrame>, std::string> AppleVideoFile::readFrame(ImagePool& pool)
{
    Reader& r = *reader_;
    if (r.passEnded)
        return std::optional<VideoFrame>();
    CMSampleBufferRef sample = r.pending ? r.pending : nextPicture(r.output);
    r.pending = nullptr;
    if (!sample) {
        if (r.reader.status == AVAssetReaderStatusFailed)
            return std::unexpected(errorText(r.reader.error, "decoding failed"));
        r.passEnded = true;
        return std::optional<VideoFrame>();
    }
    r.pending = nextPicture(r.output);
    if (!r.pending && r.reader.status == AVAssetReaderStatusReading) {
        r.passEnded = true;
        r.startedOver = readFromStart(r.output, r.duration);
    }
    CVPixelBufferRef image = CMSampleBufferGetImageBuffer(sample);
    const auto width = static_cast<int>(CVPixelBufferGetWidth(image));
    const auto height = static_cast<int>(CVPixelBufferGetHeight(image));
    // A stream may change size midway; the bound holds for every frame.
    if (width <= 0 || height <= 0 || PixelSize{width, height}.decodedBytes() > maximumDecodedImageBytes
        || CVPixelBufferGetPixelFormatType(image) != kCVPixelFormatType_32BGRA) {
        CFRelease(sample);
        return std::unexpected(std::string("a frame is not a BGRA picture of a usable size"));
    }
    CMTime stamp = CMSampleBufferGetPresentationTimeStamp(sample);
    double time = CMTIME_IS_NUMERIC(stamp) ? CMTimeGetSeconds(stamp) : nextTime_;
    nextTime_ = time + (frameRate_ > 0 ? 1.0 / frameRate_ : 1.0 / 48.0);

    auto out = pool.take(width, height, PixelFormat::bgra8);
    CVPixelBufferLockBaseAddress(image, kCVPixelBufferLock_ReadOnly);
    const auto* base = static_cast<const std::uint8_t*>(CVPixelBufferGetBaseAddress(image));
    const std::size_t sourceRow = CVPixelBufferGetBytesPerRow(image);
    const std::size_t rowBytes = static_cast<std::size_t>(width) * 4;
    if (base) {
        for (int y = 0; y < height; ++y)
            std::memcpy(out->row(y), base + static_cast<std::size_t>(y) * sourceRow, rowBytes);
    }
    CVPixelBufferUnlockBaseAddress(image, kCVPixelBufferLock_ReadOnly);
    CFRelease(sample);
    if (!base)
        return std::unexpected(std::string("a frame has no pixels"));
    return std::optional<VideoFrame>(VideoFrame{std::move(out), time});
}

std::expected<void, std::string> AppleVideoFile::rewind()
{
    Reader& r = *reader_;
    const bool startedOver = r.passEnded && r.startedOver && r.reader.status == AVAssetReaderStatusReading;
    r.passEnded = false;
    r.startedOver = false;
    nextTime_ = 0;
    if (startedOver)
        return {};
    r.dropPending();
    [r.reader cancelReading];
    auto started = startReader(r.asset, r.track, Reading::looping);
    if (!started)
        return std::unexpected(describe(started.error()));
    r.reader = started->reader;
    r.output = started->output;
    return {};
}

std::optional<VideoProbeResult> AppleVideoFile::probe(const std::filesystem::path& file)
{
    auto opened = PosixFileAccess::openedFilePath(file);
    if (!opened)
        return failure(VideoProbeFailure::notReadable, std::string("not a regular file, or outside its package"));
    AVURLAsset* asset = [AVURLAsset URLAssetWithURL:fileURL(*opened) options:nil];
    auto loaded = loadAsset(asset);
    if (!loaded)
        return loaded.error();
    auto started = startReader(asset, loaded->track, Reading::once);
    if (!started)
        return started.error();
    CMSampleBufferRef sample = nextPicture(started->output);
    if (!sample)
        return noFrames(started->reader);
    CFRelease(sample);
    [started->reader cancelReading];
    return std::nullopt;
}

} // namespace hushmeadows
