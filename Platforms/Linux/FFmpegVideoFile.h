#pragma once

#include "Platforms/Linux/FFmpegBGRAConverter.h"
#include "Platforms/Linux/FFmpegInput.h"
#include "SceneCore/Picture/VideoFile.h"

namespace hushmeadows {

// The video file port on FFmpeg: one local file opened as FFmpegInput does
// (no protocol, playlist or nested open), decoded on one thread, converted to
// BGRA by the converter the media check uses. Rewinding seeks to the start
// and flushes the decoder, which gives the first pass's frames exactly.
// Not done: audio tracks, hardware decoding, seeking anywhere but the start.
class FFmpegVideoFile final : public VideoFile {
public:
    static std::expected<std::unique_ptr<VideoFile>, std::string> open(const std::filesystem::path& file);

    double frameRate() const override { return frameRate_; }
    double duration() const override { return duration_; }
    PixelSize pixelSize() const override { return size_; }
    std::expected<std::optional<VideoFrame>, std::string> readFrame(ImagePool& pool) override;
    std::expected<void, std::string> rewind() override;

private:
    FFmpegVideoFile(FFmpegInput input, AVStream& stream, CodecContextPtr decoder);

    FFmpegInput input_;
    AVStream& stream_;
    CodecContextPtr decoder_;
    FramePtr frame_;
    FFmpegBGRAConverter converter_;
    double frameRate_ = 0;
    double duration_ = 0;
    PixelSize size_;
    double nextTime_ = 0; // for frames that carry no timestamp
};

} // namespace hushmeadows
