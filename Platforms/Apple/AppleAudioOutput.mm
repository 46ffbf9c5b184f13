#import "Platforms/Apple/AppleAudioOutput.h"

#import "Platforms/Apple/ApplePaths.h"
#import "Platforms/Apple/ScopedObserver.h"

#import <AVFoundation/AVFoundation.h>

#include "Platforms/Apple/ExceptionBarrier.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace hushmeadows {

namespace {

// What the render block touches: made before the block, freed after the
// engine that calls it. Frames beyond the scratch's size are rendered in
// several pulls.
struct RenderState {
    static constexpr AVAudioFrameCount scratchFrames = 4096;
    std::atomic<AudioRenderSource*> source{nullptr};
    std::vector<float> scratch = std::vector<float>(static_cast<std::size_t>(scratchFrames) * 2);
};

// The render thread. The engine's buffers are the standard format: one
// float plane per channel.
void renderPlanes(RenderState& state, BOOL* isSilence, AVAudioFrameCount frames, AudioBufferList* output) noexcept
{
    AudioRenderSource* source = state.source.load(std::memory_order_acquire);
    if (!source) {
        for (UInt32 b = 0; b < output->mNumberBuffers; ++b) {
            if (output->mBuffers[b].mData)
                std::memset(output->mBuffers[b].mData, 0, output->mBuffers[b].mDataByteSize);
        }
        if (isSilence)
            *isSilence = YES;
        return;
    }
    AVAudioFrameCount done = 0;
    while (done < frames) {
        AVAudioFrameCount count = std::min(frames - done, RenderState::scratchFrames);
        source->render(state.scratch.data(), static_cast<int>(count));
        for (UInt32 b = 0; b < output->mNumberBuffers; ++b) {
            auto* plane = static_cast<float*>(output->mBuffers[b].mData);
            if (!plane)
                continue;
            if (output->mBuffers[b].mNumberChannels == 2) {
                std::copy_n(state.scratch.data(), static_cast<std::size_t>(count) * 2, plane + static_cast<std::size_t>(done) * 2);
                continue;
            }
            const std::size_t channel = b == 0 ? 0 : 1;
            for (AVAudioFrameCount i = 0; i < count; ++i)
                plane[done + i] = state.scratch[static_cast<std::size_t>(i) * 2 + channel];
        }
        done += count;
    }
}

// The device change handler, shared with the configuration-change block: the
// engine posts that notification on its own queue, and removing the observer
// does not wait for a delivery already under way, so the block must not reach
// into an engine that may be going away.
struct DeviceChange {
    std::mutex mutex;
    std::function<void()> handler;

    void fire()
    {
        std::function<void()> copy;
        {
            std::lock_guard lock(mutex);
            copy = handler;
        }
        if (copy)
            exceptionBarrier("audio configuration change", copy);
    }
};

} // namespace

struct AppleAudioOutput::Engine {
    AVAudioEngine* engine = nil;
    AVAudioSourceNode* node = nil;
    double rate = 0;
    std::unique_ptr<RenderState> state;
    std::optional<ScopedObserver> configuration;
    std::shared_ptr<DeviceChange> deviceChange = std::make_shared<DeviceChange>();

    void close()
    {
        configuration.reset();
        if (state)
            state->source.store(nullptr, std::memory_order_release);
        // Synchronous: once stop returns, the render block is not running.
        [engine stop];
        if (node)
            [engine detachNode:node];
        node = nil;
        engine = nil;
        state.reset();
        rate = 0;
    }
};

AppleAudioOutput::AppleAudioOutput() : engine_(std::make_unique<Engine>()) {}

AppleAudioOutput::~AppleAudioOutput() { stop(); }

std::expected<void, std::string> AppleAudioOutput::start(AudioRenderSource& source, double sampleRate)
{
    // The engine raises when the device has no usable format (a machine
    // without an output, a device going away mid-call): that is a failure to
    // start, not an exception for the sound engine above.
    @try {
        return startEngine(source, sampleRate);
    } @catch (NSException* exception) {
        engine_->close();
        return std::unexpected("the audio engine refused to start: " + utf8Text(exception.reason));
    }
}

std::expected<void, std::string> AppleAudioOutput::startEngine(AudioRenderSource& source, double sampleRate)
{
    Engine& e = *engine_;
    if (e.engine && e.rate != sampleRate)
        e.close();
    if (!e.engine) {
        AVAudioFormat* format = [[AVAudioFormat alloc] initStandardFormatWithSampleRate:sampleRate channels:2];
        if (!format)
            return std::unexpected("cannot play audio at " + std::to_string(sampleRate) + " Hz");
        e.state = std::make_unique<RenderState>();
        RenderState* state = e.state.get();
        e.engine = [[AVAudioEngine alloc] init];
        e.node = [[AVAudioSourceNode alloc] initWithFormat:format
                                               renderBlock:^OSStatus(BOOL* isSilence, const AudioTimeStamp* timestamp,
                                                                     AVAudioFrameCount frameCount, AudioBufferList* outputData) {
                                                   (void)timestamp;
                                                   renderPlanes(*state, isSilence, frameCount, outputData);
                                                   return noErr;
                                               }];
        [e.engine attachNode:e.node];
        [e.engine connect:e.node to:e.engine.mainMixerNode format:format];
        e.rate = sampleRate;
        std::shared_ptr<DeviceChange> deviceChange = e.deviceChange;
        // The engine has stopped itself when this comes; nodes and
        // connections stay, so a later start() plays again.
        e.configuration.emplace([NSNotificationCenter defaultCenter], AVAudioEngineConfigurationChangeNotification, e.engine, nil,
                                ^(NSNotification* note) {
                                    (void)note;
                                    deviceChange->fire();
                                });
    }
    e.state->source.store(&source, std::memory_order_release);
    if (!e.engine.isRunning) {
        [e.engine prepare];
        NSError* error = nil;
        if (![e.engine startAndReturnError:&error]) {
            e.state->source.store(nullptr, std::memory_order_release);
            return std::unexpected("cannot start the audio engine: " + errorText(error, "unknown error"));
        }
    }
    return {};
}

void AppleAudioOutput::pause()
{
    Engine& e = *engine_;
    if (!e.engine)
        return;
    e.state->source.store(nullptr, std::memory_order_release);
    [e.engine pause];
}

void AppleAudioOutput::stop() { engine_->close(); }

void AppleAudioOutput::setDeviceChangeHandler(std::function<void()> handler)
{
    std::lock_guard lock(engine_->deviceChange->mutex);
    engine_->deviceChange->handler = std::move(handler);
}

} // namespace hushmeadows
