#include "Platforms/Linux/FFmpegMediaProbe.h"

#include "Platforms/Linux/FFmpegBGRAConverter.h"
#include "Platforms/Linux/FFmpegAudioLength.h"
#include "Platforms/Linux/FFmpegInput.h"
#include "Platforms/Linux/FlacStreamInfo.h"
#include "Platforms/Posix/PosixFileAccess.h"
#include "SceneCore/Picture/VideoFile.h"
#include "SceneCore/Runtime/ImageHeader.h"

namespace hushmeadows {

namespace {

// The size PNG and JPEG state in their first bytes, without FFmpeg (which
// decodes a whole picture to learn it); nothing when the file is not a
// regular one or its header does not say.
std::optional<PixelSize> statedImageSize(const std::filesystem::path& file)
{
    auto ends = PosixFileAccess::ends(file, 64 * 1024, 12);
    return ends ? imageHeaderSize(ends->head, ends->tail) : std::nullopt;
}

VideoProbeResult failure(VideoProbeFailure failure, std::optional<std::string> detail = std::nullopt)
{
    return VideoProbeResult{failure, std::move(detail)};
}

} // namespace

std::optional<PixelSize> FFmpegMediaProbe::imagePixelSize(const std::filesystem::path& file) const
{
    if (auto stated = statedImageSize(file))
        return stated;
    auto input = FFmpegInput::open(file, MediaKind::image);
    if (!input)
        return std::nullopt;
    const AVStream* stream = input->bestStream(AVMEDIA_TYPE_VIDEO);
    if (!stream || stream->codecpar->width <= 0 || stream->codecpar->height <= 0 || !avcodec_find_decoder(stream->codecpar->codec_id))
        return std::nullopt;
    return PixelSize{stream->codecpar->width, stream->codecpar->height};
}

std::expected<AudioFileInfo, std::string> FFmpegMediaProbe::audioFileInfo(const std::filesystem::path& file) const
{
    // FLAC states its format and exact length up front: no decoder needed.
    auto ends = PosixFileAccess::ends(file, 42, 0);
    if (auto flac = ends ? FlacStreamInfo::parse(ends->head) : std::nullopt; flac && !AudioFileInfo::formatProblem(flac->sampleRate, flac->channelCount))
        return *flac;

    auto input = FFmpegInput::open(file, MediaKind::audio);
    if (!input)
        return std::unexpected(input.error());
    const AVStream* stream = input->bestStream(AVMEDIA_TYPE_AUDIO);
    if (!stream)
        return std::unexpected(std::string("the file holds no audio track"));
    const AVCodecParameters& parameters = *stream->codecpar;
    if (parameters.sample_rate <= 0 || parameters.ch_layout.nb_channels <= 0)
        return std::unexpected(std::string("the audio format is unknown"));
    if (auto problem = AudioFileInfo::formatProblem(parameters.sample_rate, parameters.ch_layout.nb_channels))
        return std::unexpected(*problem);

    AudioFileInfo info{.sampleRate = static_cast<double>(parameters.sample_rate), .channelCount = parameters.ch_layout.nb_channels};
    if (auto stated = FFmpegAudioLength::stated(file, *input, *stream)) {
        // Stated lengths need no decoder, but one must exist to play the file.
        if (!avcodec_find_decoder(parameters.codec_id))
            return std::unexpected(std::string("no decoder for the audio codec"));
        info.lengthFrames = *stated;
        return info;
    }
    auto decoder = FFmpegInput::openDecoder(*stream);
    if (!decoder)
        return std::unexpected(std::string("no decoder for the audio codec"));
    auto counted = FFmpegAudioLength::counted(*input, *stream, **decoder);
    if (!counted)
        return std::unexpected(counted.error());
    info.lengthFrames = *counted;
    return info;
}

std::optional<VideoProbeResult> FFmpegMediaProbe::probeVideo(const std::filesystem::path& file) const
{
    auto input = FFmpegInput::open(file, MediaKind::video);
    if (!input)
        return failure(VideoProbeFailure::notReadable);
    const AVStream* stream = input->bestStream(AVMEDIA_TYPE_VIDEO);
    if (!stream)
        return failure(VideoProbeFailure::noVideoTrack);
    // A frame too large to hold is refused from the header, before any is decoded.
    if (auto problem = VideoFile::frameSizeProblem({stream->codecpar->width, stream->codecpar->height}))
        return failure(VideoProbeFailure::unsupportedFormat, problem);
    if (!avcodec_find_decoder(stream->codecpar->codec_id))
        return failure(VideoProbeFailure::notPlayable);
    if (!(input->durationSeconds(*stream) > 0))
        return failure(VideoProbeFailure::zeroDuration);

    auto decoder = FFmpegInput::makeDecoder(*stream);
    if (!decoder)
        return failure(decoder.error().failure == DecoderFailure::noDecoder ? VideoProbeFailure::notPlayable
                                                                            : VideoProbeFailure::cannotBeRead);
    AVCodecContext& context = **decoder;
    context.max_pixels = std::int64_t{VideoFile::largestFrameSide} * VideoFile::largestFrameSide;
    // Some codecs state their pixel format only once a frame has been decoded
    // (and never when no frame can be); those are checked on that frame.
    if (context.pix_fmt != AV_PIX_FMT_NONE && !FFmpegBGRAConverter::accepts(context.width, context.height, context.pix_fmt))
        return failure(VideoProbeFailure::unsupportedFormat);
    if (FFmpegInput::startDecoder(context) < 0)
        return failure(VideoProbeFailure::decoderCouldNotStart);

    auto frame = makeFrame();
    int result = input->decodeNext(context, *stream, *frame);
    if (result == AVERROR_EOF)
        return failure(VideoProbeFailure::noDecodableFrames);
    if (result < 0)
        return failure(VideoProbeFailure::noDecodableFrames, ffmpegErrorText(result));

    // Convert what actually came out, which may differ from the stated
    // format and size, exactly as playback will.
    if (auto problem = VideoFile::frameSizeProblem({frame->width, frame->height}))
        return failure(VideoProbeFailure::unsupportedFormat, problem);
    Image picture = Image::blank(frame->width, frame->height, PixelFormat::bgra8);
    if (!FFmpegBGRAConverter().convert(*frame, picture))
        return failure(VideoProbeFailure::unsupportedFormat);
    return std::nullopt;
}

} // namespace hushmeadows
