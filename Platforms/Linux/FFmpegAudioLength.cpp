#include "Platforms/Linux/FFmpegAudioLength.h"

extern "C" {
#include <libavutil/mathematics.h>
}

#include <algorithm>
#include <iterator>
#include <string_view>

namespace hushmeadows {

std::optional<std::int64_t> FFmpegAudioLength::stated(const FFmpegInput& input, const AVStream& stream)
{
    static constexpr std::string_view exact[] = {"wav", "w64", "aiff", "flac", "mov", "ogg"};
    std::string names = input.demuxerName();
    // The demuxer's first name: "mov" for "mov,mp4,m4a,3gp,3g2,mj2".
    std::string_view demuxer = std::string_view(names).substr(0, names.find(','));
    const int rate = stream.codecpar->sample_rate;
    bool states = stream.duration != AV_NOPTS_VALUE && stream.duration >= 0 && rate > 0
        && input.format().duration_estimation_method != AVFMT_DURATION_FROM_BITRATE;
    if (!states || std::ranges::find(exact, demuxer) == std::end(exact))
        return std::nullopt;
    std::int64_t frames = av_rescale_q(stream.duration, stream.time_base, AVRational{1, rate});
    if (demuxer == "ogg") // Opus pre-skip; zero for Vorbis and FLAC
        frames -= stream.codecpar->initial_padding;
    return std::max<std::int64_t>(0, frames);
}

std::expected<std::int64_t, std::string> FFmpegAudioLength::counted(FFmpegInput& input, const AVStream& stream, AVCodecContext& decoder)
{
    auto frame = makeFrame();
    std::int64_t total = 0;
    int result = 0;
    while ((result = input.decodeNext(decoder, stream, *frame)) == 0) {
        total += frame->nb_samples;
        av_frame_unref(frame.get());
    }
    if (result == AVERROR_EXIT)
        return std::unexpected(std::string("reading was given up"));
    return total;
}

std::expected<std::int64_t, std::string> FFmpegAudioLength::of(FFmpegInput& input, const AVStream& stream, AVCodecContext& decoder)
{
    if (auto length = stated(input, stream))
        return *length;
    return counted(input, stream, decoder);
}

} // namespace hushmeadows
