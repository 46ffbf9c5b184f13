#include "Platforms/Linux/FFmpegVideoFile.h"

namespace hushmeadows {

std::expected<std::unique_ptr<VideoFile>, std::string> FFmpegVideoFile::open(const std::filesystem::path& file)
{
    auto input = FFmpegInput::open(file, MediaKind::video);
    if (!input)
        return std::unexpected(input.error());
    AVStream* stream = input->bestStream(AVMEDIA_TYPE_VIDEO);
    if (!stream)
        return std::unexpected(std::string("the file holds no video track"));
    const AVCodecParameters& parameters = *stream->codecpar;
    if (auto problem = frameSizeProblem({parameters.width, parameters.height}))
        return std::unexpected(*problem);
    auto format = static_cast<AVPixelFormat>(parameters.format);
    if (format != AV_PIX_FMT_NONE && !FFmpegBGRAConverter::accepts(parameters.width, parameters.height, format))
        return std::unexpected(std::string("the pixel format cannot be converted"));
    auto decoder = FFmpegInput::openDecoder(*stream);
    if (!decoder)
        return std::unexpected("no decoder for the video: " + ffmpegErrorText(decoder.error().code));
    // A stream whose frames grow past its header's size fails to decode them.
    (*decoder)->max_pixels = std::int64_t{largestFrameSide} * largestFrameSide;
    return std::unique_ptr<VideoFile>(new FFmpegVideoFile(std::move(*input), *stream, std::move(*decoder)));
}

FFmpegVideoFile::FFmpegVideoFile(FFmpegInput input, AVStream& stream, CodecContextPtr decoder)
    : input_(std::move(input))
    , stream_(stream)
    , decoder_(std::move(decoder))
    , frame_(makeFrame())
{
    AVRational rate = av_guess_frame_rate(&input_.format(), &stream_, nullptr);
    frameRate_ = rate.num > 0 && rate.den > 0 ? av_q2d(rate) : 0;
    duration_ = input_.durationSeconds(stream_);
    size_ = {stream_.codecpar->width, stream_.codecpar->height};
}

std::expected<std::optional<VideoFrame>, std::string> FFmpegVideoFile::readFrame(ImagePool& pool)
{
    int result = input_.decodeNext(*decoder_, stream_, *frame_);
    if (result == AVERROR_EOF)
        return std::nullopt;
    if (result < 0)
        return std::unexpected(ffmpegErrorText(result));
    if (auto problem = frameSizeProblem({frame_->width, frame_->height})) {
        av_frame_unref(frame_.get());
        return std::unexpected(*problem);
    }
    VideoFrame frame;
    const std::int64_t stamp = frame_->best_effort_timestamp;
    frame.presentationTime = stamp != AV_NOPTS_VALUE ? static_cast<double>(stamp) * av_q2d(stream_.time_base) : nextTime_;
    nextTime_ = frame.presentationTime + (frameRate_ > 0 ? 1 / frameRate_ : 0);
    auto image = pool.take(frame_->width, frame_->height, PixelFormat::bgra8);
    const bool converted = converter_.convert(*frame_, *image);
    av_frame_unref(frame_.get());
    if (!converted)
        return std::unexpected(std::string("a frame could not be converted to BGRA"));
    frame.image = std::move(image);
    return frame;
}

std::expected<void, std::string> FFmpegVideoFile::rewind()
{
    if (int result = input_.rewind(*decoder_, stream_); result < 0)
        return std::unexpected(ffmpegErrorText(result));
    nextTime_ = 0;
    return {};
}

} // namespace hushmeadows
