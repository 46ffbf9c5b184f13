// Declarations written from Apple's public documentation, for the parse check
// only (tools/check-macos-host.sh); not Apple's header.
#pragma once

#import <Foundation/Foundation.h>
#include <AudioToolbox/AudioToolbox.h>
#include <CoreMedia/CoreMedia.h>

typedef NSString* AVMediaType;
extern AVMediaType const AVMediaTypeVideo;
extern AVMediaType const AVMediaTypeAudio;

typedef NS_ENUM(NSInteger, AVKeyValueStatus) {
    AVKeyValueStatusUnknown,
    AVKeyValueStatusLoading,
    AVKeyValueStatusLoaded,
    AVKeyValueStatusFailed,
    AVKeyValueStatusCancelled,
};

@interface AVAssetTrack : NSObject
@property(readonly) float nominalFrameRate;
@end

@interface AVAsset : NSObject
@property(readonly) CMTime duration;
@property(readonly, getter=isPlayable) BOOL playable;
- (void)loadTracksWithMediaType:(AVMediaType)mediaType completionHandler:(void (^)(NSArray<AVAssetTrack*>* tracks, NSError* error))completionHandler;
- (void)loadValuesAsynchronouslyForKeys:(NSArray<NSString*>*)keys completionHandler:(void (^)(void))handler;
- (AVKeyValueStatus)statusOfValueForKey:(NSString*)key error:(NSError**)outError;
- (void)cancelLoading;
@end

@interface AVURLAsset : AVAsset
+ (instancetype)URLAssetWithURL:(NSURL*)URL options:(NSDictionary<NSString*, id>*)options;
@end

@interface AVAssetReaderOutput : NSObject
@property BOOL alwaysCopiesSampleData;
@property BOOL supportsRandomAccess;
- (CMSampleBufferRef)copyNextSampleBuffer CF_RETURNS_RETAINED;
- (void)resetForReadingTimeRanges:(NSArray<NSValue*>*)timeRanges;
- (void)markConfigurationAsFinal;
@end

@interface AVAssetReaderTrackOutput : AVAssetReaderOutput
- (instancetype)initWithTrack:(AVAssetTrack*)track outputSettings:(NSDictionary<NSString*, id>*)outputSettings;
@end

typedef NS_ENUM(NSInteger, AVAssetReaderStatus) {
    AVAssetReaderStatusUnknown = 0,
    AVAssetReaderStatusReading,
    AVAssetReaderStatusCompleted,
    AVAssetReaderStatusFailed,
    AVAssetReaderStatusCancelled,
};

@interface AVAssetReader : NSObject
- (instancetype)initWithAsset:(AVAsset*)asset error:(NSError**)outError;
@property(readonly) AVAssetReaderStatus status;
@property(readonly) NSError* error;
@property CMTimeRange timeRange;
- (BOOL)canAddOutput:(AVAssetReaderOutput*)output;
- (void)addOutput:(AVAssetReaderOutput*)output;
- (BOOL)startReading;
- (void)cancelReading;
@end

typedef UInt32 AVAudioFrameCount;
typedef NSUInteger AVAudioChannelCount;

@interface AVAudioFormat : NSObject
- (instancetype)initStandardFormatWithSampleRate:(double)sampleRate channels:(AVAudioChannelCount)channels;
@property(readonly) double sampleRate;
@end

@interface AVAudioNode : NSObject
@end

@interface AVAudioMixerNode : AVAudioNode
@end

typedef OSStatus (^AVAudioSourceNodeRenderBlock)(BOOL* isSilence, const AudioTimeStamp* timestamp, AVAudioFrameCount frameCount,
                                                 AudioBufferList* outputData);

@interface AVAudioSourceNode : AVAudioNode
- (instancetype)initWithFormat:(AVAudioFormat*)format renderBlock:(AVAudioSourceNodeRenderBlock)block;
@end

@interface AVAudioEngine : NSObject
- (instancetype)init;
@property(readonly, strong) AVAudioMixerNode* mainMixerNode;
@property(readonly, getter=isRunning) BOOL running;
- (void)attachNode:(AVAudioNode*)node;
- (void)detachNode:(AVAudioNode*)node;
- (void)connect:(AVAudioNode*)node1 to:(AVAudioNode*)node2 format:(AVAudioFormat*)format;
- (void)prepare;
- (BOOL)startAndReturnError:(NSError**)outError;
- (void)pause;
- (void)stop;
@end
extern NSNotificationName const AVAudioEngineConfigurationChangeNotification;
