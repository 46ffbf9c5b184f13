#pragma once

// C++ adapters over Apple's frameworks. This header holds no Objective-C
// types, so plain C++ may include it; the implementations are .mm files
// compiled with ARC.

#include "HushmeadowsSaver/NotificationCenter.h"
#include "HushmeadowsSaver/SystemSession.h"
#include "SceneCore/Runtime/ImageDecoder.h"
#include "SceneCore/Runtime/Log.h"
#include "SceneCore/Runtime/MediaProbe.h"
#include "SceneCore/Runtime/RunLoop.h"
#include "SceneCore/Runtime/SerialQueue.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

namespace hushmeadows {

// The main dispatch queue, NSTimer in the common modes, CACurrentMediaTime.
class AppleMainRunLoop final : public RunLoop {
public:
    void post(std::function<void()> work) override;
    std::shared_ptr<Cancellable> postAfter(double delay, std::function<void()> work) override;
    std::shared_ptr<Cancellable> scheduleRepeating(double interval, std::function<void()> work) override;
    double mediaTime() const override;
};

// A serial dispatch queue at user-initiated quality of service.
class AppleSerialQueue final : public SerialQueue {
public:
    // What destruction does with work still queued.
    enum class Teardown {
        // Returns at once: dispatch keeps the queue until its work has run,
        // and that work must own (or hold weakly) everything it touches.
        // For loads, which a stop must never wait for.
        detach,
        // Waits until the work queued so far has run, for an owner whose
        // work refers to the owner itself; each item must be short.
        drain,
    };

    explicit AppleSerialQueue(std::string label, Teardown teardown = Teardown::detach);
    ~AppleSerialQueue() override;
    AppleSerialQueue(const AppleSerialQueue&) = delete;
    AppleSerialQueue& operator=(const AppleSerialQueue&) = delete;

    const std::string& label() const override { return label_; }
    void async(std::function<void()> work) override;

private:
    struct Queue;
    std::string label_;
    Teardown teardown_;
    std::unique_ptr<Queue> queue_;
};

// NSDistributedNotificationCenter, delivered on the main operation queue.
// Posting is the core's port; observing is how the principal class turns the
// system's screen saver notifications into the core's calls.
class AppleDistributedCenter final : public NotificationCenter {
public:
    // A delivered notification's Boolean user-information values by key.
    using Handler = std::function<void(const std::map<std::string, bool>& booleans)>;
    using Token = std::uint64_t;

    AppleDistributedCenter();
    ~AppleDistributedCenter() override;
    Token addObserver(const std::string& name, Handler handler);
    void removeObserver(Token token);
    void post(const Notification& notification) override;

private:
    struct Observers;
    std::unique_ptr<Observers> observers_;
    Token next_ = 1;
};

// NSWorkspace's running applications with the screen saver engine's bundle
// identifier, the session dictionary's lock flag, input idle time.
class AppleSystemSession final : public SystemSession {
public:
    static constexpr const char* engineBundleIdentifier = "com.apple.ScreenSaver.Engine";

    std::vector<EngineProcess> engineProcesses() const override;
    std::optional<bool> screenIsLocked() const override;
    double idleSeconds() const override;
};

// os_log, one log object per category under the subsystem. The system log
// needs its formats at compile time, so the line is rendered here (private
// arguments redacted unless the debug switch is on) and logged as one public
// string.
class AppleLogSink final : public LogSink {
public:
    void write(const LogRecord& record) override;
};

// Image I/O: full decodes into 32-bit BGRA or RGBA. Only local regular files
// are opened, and a picture larger than maximumDecodedImageBytes is refused
// from its header.
class AppleImageDecoder final : public ImageDecoder {
public:
    std::optional<Image> decode(const std::filesystem::path& file, PixelFormat format) const override;
};

// The image decoder's header read for posters, the audio file adapter's for
// sound, the video file adapter's first frame for videos.
class AppleMediaProbe final : public MediaProbe {
public:
    std::optional<PixelSize> imagePixelSize(const std::filesystem::path& file) const override;
    std::expected<AudioFileInfo, std::string> audioFileInfo(const std::filesystem::path& file) const override;
    std::optional<VideoProbeResult> probeVideo(const std::filesystem::path& file) const override;
};

} // namespace hushmeadows
