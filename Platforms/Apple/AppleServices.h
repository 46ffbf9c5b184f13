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

#include <map>
#include <memory>

namespace hushmeadows {

// The main dispatch queue, NSTimer in the common modes, CACurrentMediaTime.
class AppleMainRunLoop final : public RunLoop {
public:
    void post(std::function<void()> work) override;
    std::shared_ptr<Cancellable> postAfter(double delay, std::function<void()> work) override;
    std::shared_ptr<Cancellable> scheduleRepeating(double interval, std::function<void()> work) override;
    double mediaTime() const override;
};

// NSDistributedNotificationCenter, delivered on the main operation queue.
class AppleDistributedCenter final : public NotificationCenter {
public:
    AppleDistributedCenter();
    ~AppleDistributedCenter() override;
    Token addObserver(const std::string& name, Handler handler) override;
    void removeObserver(Token token) override;
    void post(const Notification& notification) override;

private:
    struct Observers;
    std::unique_ptr<Observers> observers_;
    Token next_ = 1;
};

// NSWorkspace's running applications, the session dictionary, input idle time.
class AppleSystemSession final : public SystemSession {
public:
    std::vector<RunningApplication> runningApplications() const override;
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

// Image I/O: headers for sizes, full decodes into 32-bit BGRA or RGBA.
class AppleImageDecoder final : public ImageDecoder {
public:
    std::optional<PixelSize> pixelSize(const std::filesystem::path& file) const override;
    std::optional<Image> decode(const std::filesystem::path& file, PixelFormat format) const override;
};

// Image I/O for posters, AVAudioFile for sound, AVFoundation's asset reader
// for the video probe.
class AppleMediaProbe final : public MediaProbe {
public:
    std::optional<PixelSize> imagePixelSize(const std::filesystem::path& file) const override;
    std::expected<AudioFileInfo, std::string> audioFileInfo(const std::filesystem::path& file) const override;
    std::optional<VideoProbeResult> probeVideo(const std::filesystem::path& file) const override;
};

} // namespace hushmeadows
