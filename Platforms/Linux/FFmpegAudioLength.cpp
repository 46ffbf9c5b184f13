#include "Platforms/Linux/FFmpegAudioLength.h"

#include "Platforms/Linux/Mp3InfoTag.h"
#include "Platforms/Posix/PosixFileAccess.h"

extern "C" {
#include <libavutil/mathematics.h>
}

#include <algorithm>
#include <iterator>
#include <string_view>

namespace hushmeadows {

namespace {

// An ID3v2 tag longer than this (pictures and all) is not read past: the file
// is counted instead.
constexpr std::size_t longestTagRead = 4 << 20;

// What an MP3's Xing header and LAME tag state, when they agree with the
// stream and the file could hold that many frames (none is under 24 bytes).
std::optional<std::int64_t> statedByMp3(const std::filesystem::path& file, const FFmpegInput& input, int rate)
{
    auto first = PosixFileAccess::ends(file, 10, 0);
    std::size_t start = first ? Mp3InfoTag::audioStart(first->head) : 0;
    if (!first || start > longestTagRead)
        return std::nullopt;
    auto head = PosixFileAccess::ends(file, start + Mp3InfoTag::headBytes, 0);
    auto tag = head && head->head.size() > start ? Mp3InfoTag::parse(std::string_view(head->head).substr(start)) : std::nullopt;
    std::int64_t size = avio_size(input.format().pb);
    if (!tag || tag->sampleRate != rate || size < 0 || tag->lengthFrames / 1152 * 24 > size)
        return std::nullopt;
    return tag->lengthFrames;
}

} // namespace

std::optional<std::int64_t> FFmpegAudioLength::stated(const std::filesystem::path& file, const FFmpegInput& input, const AVStream& stream)
{
    static constexpr std::string_view exact[] = {"wav", "w64", "aiff", "flac", "mov", "ogg"};
    std::string names = input.demuxerName();
    // The demuxer's first name: "mov" for "mov,mp4,m4a,3gp,3g2,mj2".
    std::string_view demuxer = std::string_view(names).substr(0, names.find(','));
    const int rate = stream.codecpar->sample_rate;
    if (demuxer == "mp3" && rate > 0)
        return statedByMp3(file, input, rate);
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

} // namespace hushmeadows
