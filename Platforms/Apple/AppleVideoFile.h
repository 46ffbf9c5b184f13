#pragma once

#include "SceneCore/Picture/VideoFile.h"
#include "SceneCore/Runtime/MediaProbe.h"

#include <memory>

namespace hushmeadows {

// The video file port on AVFoundation: an asset reader over the first video
// track of one local regular file, vending 32-bit BGRA, IOSurface-backed
// pixel buffers, each copied once into a pooled image. The track output reads
// pass after pass: it starts over as soon as the last picture of a pass is
// decoded, so rewinding at the loop point waits for nothing and the next
// pass's frames are the first pass's exactly.
// A file opens, and passes the probe, only when it has a video track, plays
// on this Mac and lasts longer than zero; each load of the asset waits at
// most loadTimeout, so a file that never answers cannot hold the decoding
// queue for long (and no stop waits for that queue). The frame rate is
// measured from the first frame's duration.
class AppleVideoFile final : public VideoFile {
public:
    static constexpr double loadTimeout = 3.0;

    static std::expected<std::unique_ptr<VideoFile>, std::string> open(const std::filesystem::path& file);
    // The media check: nothing when a first frame decodes.
    static std::optional<VideoProbeResult> probe(const std::filesystem::path& file);

    ~AppleVideoFile() override;
    AppleVideoFile(const AppleVideoFile&) = delete;
    AppleVideoFile& operator=(const AppleVideoFile&) = delete;

    double frameRate() const override { return frameRate_; }
    double duration() const override { return duration_; }
    PixelSize pixelSize() const override { return size_; }
    std::expected<std::optional<VideoFrame>, std::string> readFrame(ImagePool& pool) override;
    std::expected<void, std::string> rewind() override;

private:
    struct Reader;
    explicit AppleVideoFile(std::unique_ptr<Reader> reader);

    std::unique_ptr<Reader> reader_;
    PixelSize size_;
    double frameRate_ = 0;
    double duration_ = 0;
    double nextTime_ = 0; // for frames that carry no timestamp
};

} // namespace hushmeadows
