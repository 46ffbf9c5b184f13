#include "Platforms/Linux/FFmpegMediaProbe.h"

#include "Platforms/Linux/FFmpegBGRAConverter.h"
#include "Platforms/Linux/FFmpegInput.h"

extern "C" {
#include <libavutil/mathematics.h>
}

#include <algorithm>
#include <string_view>

namespace hushmeadows {

namespace {

// The demuxer's first name, e.g. "mov" for "mov,mp4,m4a,3gp,3g2,mj2".
std::string_view demuxerOf(const std::string& names)
{
    return std::string_view(names).substr(0, names.find(','));
}

// Demuxers whose stated stream duration is the true length of the audio:
// sample counts in a header (wav, w64, aiff, flac), an edit list that leaves
// out the encoder's priming and padding (mov), or granule positions (ogg, which
// still include the codec's pre-skip). mp3, adts, matroska and caf state
// nothing exact, or include the encoder's delay, so those are counted by
// decoding.
bool statesExactLength(std::string_view demuxer)
{
    static constexpr std::string_view exact[] = {"wav", "w64", "aiff", "flac", "mov", "ogg"};
    return std::ranges::find(exact, demuxer) != std::end(exact);
}

// The frames the decoder delivers, which libavcodec has already trimmed by
// the skip and discard information the demuxer passed on.
std::int64_t countDecodedFrames(FFmpegInput& input, const AVStream& stream)
{
    auto decoder = FFmpegInput::openDecoder(stream);
    if (!decoder)
        return 0;
    auto frame = makeFrame();
    std::int64_t total = 0;
    // A damaged packet ends the count: what decoded before it is what plays.
    while (input.decodeNext(**decoder, stream, *frame) == 0) {
        total += frame->nb_samples;
        av_frame_unref(frame.get());
    }
    return total;
}

VideoProbeResult failure(VideoProbeFailure failure, std::optional<std::string> detail = std::nullopt)
{
    return VideoProbeResult{failure, std::move(detail)};
}

} // namespace

std::optional<PixelSize> FFmpegMediaProbe::imagePixelSize(const std::filesystem::path& file) const
{
    auto input = FFmpegInput::open(file, MediaKind::image);
    if (!input)
        return std::nullopt;
    const AVStream* stream = input->bestStream(AVMEDIA_TYPE_VIDEO);
    if (!stream)
        return std::nullopt;
    const AVCodecParameters& parameters = *stream->codecpar;
    if (parameters.width <= 0 || parameters.height <= 0 || !avcodec_find_decoder(parameters.codec_id))
        return std::nullopt;
    return PixelSize{parameters.width, parameters.height};
}

std::expected<AudioFileInfo, std::string> FFmpegMediaProbe::audioFileInfo(const std::filesystem::path& file) const
{
    auto input = FFmpegInput::open(file, MediaKind::audio);
    if (!input)
        return std::unexpected(input.error());
    const AVStream* stream = input->bestStream(AVMEDIA_TYPE_AUDIO);
    if (!stream)
        return std::unexpected(std::string("the file holds no audio track"));
    const AVCodecParameters& parameters = *stream->codecpar;
    if (parameters.sample_rate <= 0 || parameters.ch_layout.nb_channels <= 0)
        return std::unexpected(std::string("the audio format is unknown"));
    if (!avcodec_find_decoder(parameters.codec_id))
        return std::unexpected(std::string("no decoder for the audio codec"));

    AudioFileInfo info;
    info.sampleRate = parameters.sample_rate;
    info.channelCount = parameters.ch_layout.nb_channels;
    const AVFormatContext& format = input->format();
    bool stated = stream->duration != AV_NOPTS_VALUE && stream->duration >= 0
        && format.duration_estimation_method != AVFMT_DURATION_FROM_BITRATE;
    std::string demuxers = input->demuxerName();
    auto demuxer = demuxerOf(demuxers);
    if (stated && statesExactLength(demuxer)) {
        std::int64_t frames = av_rescale_q(stream->duration, stream->time_base, AVRational{1, parameters.sample_rate});
        if (demuxer == "ogg") // Opus pre-skip; zero for Vorbis and FLAC
            frames -= parameters.initial_padding;
        info.lengthFrames = std::max<std::int64_t>(0, frames);
    } else {
        info.lengthFrames = countDecodedFrames(*input, *stream);
    }
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
    if (!avcodec_find_decoder(stream->codecpar->codec_id))
        return failure(VideoProbeFailure::notPlayable);
    if (!(input->durationSeconds(*stream) > 0))
        return failure(VideoProbeFailure::zeroDuration);

    auto decoder = FFmpegInput::makeDecoder(*stream);
    if (!decoder)
        return failure(decoder.error().failure == DecoderFailure::noDecoder ? VideoProbeFailure::notPlayable
                                                                            : VideoProbeFailure::cannotBeRead);
    AVCodecContext& context = **decoder;
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
    // format, exactly as playback will.
    Image picture = Image::blank(frame->width, frame->height, PixelFormat::bgra8);
    if (!FFmpegBGRAConverter().convert(*frame, picture))
        return failure(VideoProbeFailure::unsupportedFormat);
    return std::nullopt;
}

} // namespace hushmeadows
