#include "Platforms/Linux/FFmpegAudioFile.h"

#include "Platforms/Linux/FFmpegAudioLength.h"
#include "Platforms/Linux/FFmpegInput.h"
#include "SceneCore/Runtime/MediaProbe.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/mathematics.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace hushmeadows {

namespace {

struct SwrContextDeleter {
    void operator()(SwrContext* context) const noexcept { swr_free(&context); }
};
using SwrContextPtr = std::unique_ptr<SwrContext, SwrContextDeleter>;

struct ChannelLayout {
    AVChannelLayout layout{};
    ChannelLayout() = default;
    ChannelLayout(const ChannelLayout&) = delete;
    ChannelLayout& operator=(const ChannelLayout&) = delete;
    ~ChannelLayout() { av_channel_layout_uninit(&layout); }
};

// The most frames at its end that a lossy decoder is allowed to lose (one of
// the longest Vorbis blocks) before the file counts as cut short.
constexpr std::int64_t lostTailTolerance = 8192;

// Codecs whose every packet decodes to the same samples whatever came before
// it, so that decoding may start at any packet. FFmpeg's "intra only" flag
// does not say this: AAC, MP3 and Vorbis carry it, yet overlap with the
// previous packet.
bool decodesPacketsIndependently(AVCodecID codec)
{
    bool pcm = codec >= AV_CODEC_ID_PCM_S16LE && codec < AV_CODEC_ID_ADPCM_IMA_QT;
    return pcm || codec == AV_CODEC_ID_FLAC || codec == AV_CODEC_ID_ALAC;
}

std::string decoderErrorText(const DecoderError& error)
{
    switch (error.failure) {
    case DecoderFailure::noDecoder: return "no decoder for the audio codec";
    case DecoderFailure::cannotAllocate: return "cannot set up the audio decoder";
    case DecoderFailure::cannotStart:
        return "the audio decoder did not start: " + ffmpegErrorText(error.code);
    }
    return "the audio decoder failed";
}

} // namespace

// One pass of decoding through the file, from its start or from a seek.
struct FFmpegAudioFile::Pass {
    Pass(FFmpegInput opened, AVStream& audio, CodecContextPtr codec, AudioFormat output, std::int64_t lastFrame)
        : input(std::move(opened))
        , stream(&audio)
        , decoder(std::move(codec))
        , frame(makeFrame())
        , format(output)
        , length(lastFrame)
    {
    }

    FFmpegInput input;
    AVStream* stream;
    CodecContextPtr decoder;
    FramePtr frame;
    const AudioFormat format;  // what comes out
    const std::int64_t length; // frames beyond it are dropped
    SwrContextPtr converter;   // made for the first decoded frame

    // Converted frames not yet read, one plane per channel, from `offset` on.
    std::array<std::vector<float>, 2> pending;
    std::size_t offset = 0;
    std::array<std::vector<float>, 2> scratch;

    std::int64_t inputFed = 0; // file frames given to the converter
    std::int64_t produced = 0; // processing frames made: the frame index where `pending` ends
    bool inputDone = false;
    bool ended = false;

    std::int64_t available() const { return static_cast<std::int64_t>(pending[0].size() - offset); }
    std::int64_t position() const { return produced - available(); }

    // Converts the first `count` frames of the decoded frame, or with no frame
    // drains what the resampler holds, and keeps what lies before `length`.
    std::expected<void, std::string> convert(const AVFrame* decoded, int count)
    {
        if (!converter) {
            if (!decoded)
                return {};
            if (auto made = makeConverter(*decoded); !made)
                return made;
        }
        for (;;) {
            int capacity = swr_get_out_samples(converter.get(), decoded ? count : 0);
            if (capacity <= 0)
                return {};
            for (int channel = 0; channel < format.channelCount; ++channel)
                if (scratch[channel].size() < static_cast<std::size_t>(capacity))
                    scratch[channel].resize(static_cast<std::size_t>(capacity));
            std::array<std::uint8_t*, 2> planes{reinterpret_cast<std::uint8_t*>(scratch[0].data()),
                                                reinterpret_cast<std::uint8_t*>(scratch[1].data())};
            int converted = swr_convert(converter.get(), planes.data(), capacity,
                                        decoded ? const_cast<const std::uint8_t**>(decoded->extended_data) : nullptr,
                                        decoded ? count : 0);
            if (converted < 0)
                return std::unexpected("cannot convert the audio: " + ffmpegErrorText(converted));
            std::int64_t kept = std::min<std::int64_t>(converted, length - produced);
            for (int channel = 0; kept > 0 && channel < format.channelCount; ++channel)
                pending[channel].insert(pending[channel].end(), scratch[channel].begin(), scratch[channel].begin() + kept);
            produced += std::max<std::int64_t>(kept, 0);
            // Input is taken whole in one call; draining goes on until empty.
            if (decoded || converted == 0)
                return {};
        }
    }

    std::expected<void, std::string> makeConverter(const AVFrame& decoded)
    {
        ChannelLayout from, to;
        if (decoded.ch_layout.order == AV_CHANNEL_ORDER_UNSPEC || decoded.ch_layout.nb_channels <= 0)
            av_channel_layout_default(&from.layout, std::max(decoded.ch_layout.nb_channels, 1));
        else if (av_channel_layout_copy(&from.layout, &decoded.ch_layout) < 0)
            return std::unexpected(std::string("cannot read the channel layout"));
        av_channel_layout_default(&to.layout, format.channelCount);
        SwrContext* made = nullptr;
        int result = swr_alloc_set_opts2(&made, &to.layout, AV_SAMPLE_FMT_FLTP, static_cast<int>(format.sampleRate), &from.layout,
                                         static_cast<AVSampleFormat>(decoded.format), decoded.sample_rate, 0, nullptr);
        converter.reset(made);
        if (result >= 0)
            result = swr_init(converter.get());
        if (result < 0) {
            converter.reset();
            return std::unexpected("cannot convert the audio: " + ffmpegErrorText(result));
        }
        return {};
    }
};

std::expected<std::unique_ptr<AudioFile>, std::string> FFmpegAudioFile::open(const std::filesystem::path& file,
                                                                             double sampleRate)
{
    if (!(sampleRate > 0 && sampleRate <= AudioFileInfo::highestSampleRate) || sampleRate != std::floor(sampleRate))
        return std::unexpected("cannot read audio at " + std::to_string(sampleRate) + " Hz");
    auto input = FFmpegInput::open(file, MediaKind::audio);
    if (!input)
        return std::unexpected(input.error());
    AVStream* stream = input->bestStream(AVMEDIA_TYPE_AUDIO);
    if (!stream)
        return std::unexpected(std::string("the file holds no audio track"));
    const AVCodecParameters& parameters = *stream->codecpar;
    if (parameters.sample_rate <= 0 || parameters.ch_layout.nb_channels <= 0)
        return std::unexpected(std::string("the audio format is unknown"));
    if (auto problem = AudioFileInfo::formatProblem(parameters.sample_rate, parameters.ch_layout.nb_channels))
        return std::unexpected(*problem);

    std::unique_ptr<FFmpegAudioFile> audio(new FFmpegAudioFile());
    audio->path_ = file;
    audio->streamIndex_ = stream->index;
    audio->inputRate_ = parameters.sample_rate;
    audio->format_ = AudioFormat{sampleRate, parameters.ch_layout.nb_channels == 1 ? 1 : 2};
    audio->independent_ = decodesPacketsIndependently(parameters.codec_id);
    audio->exactSeek_ = audio->independent_ && audio->inputRate_ == sampleRate;

    auto decoder = FFmpegInput::openDecoder(*stream);
    if (!decoder)
        return std::unexpected(decoderErrorText(decoder.error()));
    auto stated = FFmpegAudioLength::stated(file, *input, *stream);
    auto length = stated ? *stated : FFmpegAudioLength::counted(*input, *stream, **decoder);
    if (!length)
        return std::unexpected(length.error());
    audio->inputLength_ = *length;
    audio->length_ = audio->inputRate_ == sampleRate
        ? audio->inputLength_
        : av_rescale_rnd(audio->inputLength_, static_cast<std::int64_t>(sampleRate), static_cast<std::int64_t>(audio->inputRate_),
                         AV_ROUND_NEAR_INF);
    if (stated) {
        // The probe's input, still at its start, becomes the first pass.
        audio->pass_ = std::make_unique<Pass>(std::move(*input), *stream, std::move(*decoder), audio->format_, audio->length_);
        ++audio->passesOpened_;
    }
    return audio;
}

FFmpegAudioFile::~FFmpegAudioFile() = default;

void FFmpegAudioFile::setFramePosition(std::int64_t frame)
{
    target_ = std::clamp<std::int64_t>(frame, 0, length_);
}

std::expected<std::unique_ptr<FFmpegAudioFile::Pass>, std::string> FFmpegAudioFile::openPass() const
{
    auto input = FFmpegInput::open(path_, MediaKind::audio);
    if (!input)
        return std::unexpected(input.error());
    AVFormatContext& format = input->format();
    if (streamIndex_ < 0 || static_cast<unsigned>(streamIndex_) >= format.nb_streams
        || format.streams[streamIndex_]->codecpar->codec_type != AVMEDIA_TYPE_AUDIO)
        return std::unexpected(std::string("the file changed while it was being read"));
    AVStream& stream = *format.streams[streamIndex_];
    auto decoder = FFmpegInput::openDecoder(stream);
    if (!decoder)
        return std::unexpected(decoderErrorText(decoder.error()));
    return std::make_unique<Pass>(std::move(*input), stream, std::move(*decoder), format_, length_);
}

std::expected<void, std::string> FFmpegAudioFile::feed(Pass& pass)
{
    AVFrame& frame = *pass.frame;
    std::int64_t count = std::min<std::int64_t>(frame.nb_samples, inputLength_ - pass.inputFed);
    if (count <= 0) {
        // Past the true end: an encoder's padding.
        av_frame_unref(&frame);
        pass.inputDone = true;
        return {};
    }
    if (frame.sample_rate != static_cast<int>(inputRate_)) {
        av_frame_unref(&frame);
        return std::unexpected(std::string("the sample rate changes within the file"));
    }
    auto converted = pass.convert(&frame, static_cast<int>(count));
    av_frame_unref(&frame);
    if (!converted)
        return converted;
    pass.inputFed += count;
    if (pass.inputFed >= inputLength_)
        pass.inputDone = true;
    return {};
}

std::expected<void, std::string> FFmpegAudioFile::fill(std::int64_t frames)
{
    Pass& pass = *pass_;
    while (pass.available() < frames && !pass.ended) {
        if (pass.inputDone) {
            if (auto drained = pass.convert(nullptr, 0); !drained)
                return drained;
            // A resampler may come out a frame or so short of the rescaled
            // length, and lossy decoders may lose the last few frames of a
            // stream (Vorbis does, on short files): silence completes the
            // sound so that its length, which loops are timed by, holds. A
            // file whose frames decode independently and ends early is cut
            // short and reads short.
            std::int64_t tolerance = independent_ ? 0 : lostTailTolerance;
            if (inputLength_ - pass.inputFed <= tolerance && pass.produced < length_) {
                auto missing = static_cast<std::size_t>(length_ - pass.produced);
                for (int channel = 0; channel < format_.channelCount; ++channel)
                    pass.pending[channel].insert(pass.pending[channel].end(), missing, 0.0f);
                pass.produced = length_;
            }
            pass.ended = true;
            break;
        }
        int result = pass.input.decodeNext(*pass.decoder, *pass.stream, *pass.frame);
        if (result == AVERROR_EOF) {
            pass.inputDone = true;
            continue;
        }
        if (result < 0)
            return std::unexpected("cannot decode the audio: " + ffmpegErrorText(result));
        if (auto fed = feed(pass); !fed)
            return fed;
    }
    return {};
}

std::expected<void, std::string> FFmpegAudioFile::skipTo(std::int64_t frame)
{
    Pass& pass = *pass_;
    while (pass.position() < frame) {
        if (pass.available() == 0) {
            if (pass.ended)
                return std::unexpected(std::string("the file ends before frame ") + std::to_string(frame));
            if (auto filled = fill(std::min<std::int64_t>(frame - pass.position(), 1 << 16)); !filled)
                return filled;
            continue;
        }
        std::int64_t drop = std::min(pass.available(), frame - pass.position());
        pass.offset += static_cast<std::size_t>(drop);
        if (pass.available() == 0) {
            for (auto& plane : pass.pending)
                plane.clear();
            pass.offset = 0;
        }
    }
    return {};
}

std::expected<void, std::string> FFmpegAudioFile::seekPass(std::int64_t frame)
{
    auto pass = openPass();
    if (!pass)
        return std::unexpected(pass.error());
    ++passesOpened_;
    Pass& next = **pass;
    AVStream& stream = *next.stream;
    std::int64_t origin = stream.start_time != AV_NOPTS_VALUE ? stream.start_time : 0;
    std::int64_t timestamp = origin + av_rescale_q(frame, AVRational{1, static_cast<int>(inputRate_)}, stream.time_base);
    if (av_seek_frame(&next.input.format(), stream.index, timestamp, AVSEEK_FLAG_BACKWARD) < 0)
        return std::unexpected(std::string("seek refused"));
    avcodec_flush_buffers(next.decoder.get());

    // Where the decoder landed, from the first frame's timestamp; it must not
    // lie after the frame asked for.
    int result = next.input.decodeNext(*next.decoder, stream, *next.frame);
    if (result < 0)
        return std::unexpected(std::string("nothing decodes after the seek"));
    std::int64_t stamp = next.frame->pts != AV_NOPTS_VALUE ? next.frame->pts : next.frame->best_effort_timestamp;
    if (stamp == AV_NOPTS_VALUE)
        return std::unexpected(std::string("the decoder gave no timestamp"));
    std::int64_t landed = av_rescale_q(stamp - origin, stream.time_base, AVRational{1, static_cast<int>(inputRate_)});
    if (landed < 0 || landed > frame)
        return std::unexpected(std::string("the seek landed after the frame"));

    next.inputFed = landed;
    next.produced = landed;
    if (auto fed = feed(next); !fed)
        return fed;
    pass_ = std::move(*pass);
    return {};
}

std::expected<void, std::string> FFmpegAudioFile::reachTarget()
{
    // Close enough ahead to decode on rather than seek: one second.
    const auto nearby = static_cast<std::int64_t>(format_.sampleRate);
    if (pass_) {
        std::int64_t here = pass_->position();
        if (here == target_)
            return {};
        if (target_ > here && (!exactSeek_ || target_ - here <= nearby))
            return skipTo(target_);
    }
    if (exactSeek_ && target_ > 0) {
        if (seekPass(target_))
            return skipTo(target_);
        pass_.reset();
    }
    auto pass = openPass();
    if (!pass)
        return std::unexpected(pass.error());
    ++passesOpened_;
    pass_ = std::move(*pass);
    return skipTo(target_);
}

std::expected<void, std::string> FFmpegAudioFile::read(PCMBuffer& buffer, std::uint32_t frames)
{
    if (buffer.format().channelCount != format_.channelCount)
        return std::unexpected("the buffer holds " + std::to_string(buffer.channelCount()) + " channel(s), the file "
                               + std::to_string(format_.channelCount));
    std::int64_t wanted = std::min<std::int64_t>({frames, buffer.frameCapacity(), length_ - target_});
    buffer.setFrameLength(0);
    if (wanted <= 0)
        return {};
    if (auto reached = reachTarget(); !reached) {
        pass_.reset(); // start over cleanly next time
        return reached;
    }
    // In steps, so that a long read never holds the file twice in memory.
    constexpr std::int64_t step = 1 << 16;
    Pass& pass = *pass_;
    std::int64_t count = 0;
    while (count < wanted) {
        if (auto filled = fill(std::min(wanted - count, step)); !filled) {
            pass_.reset();
            return filled;
        }
        std::int64_t take = std::min(wanted - count, pass.available());
        if (take == 0)
            break; // the file ended early
        for (int channel = 0; channel < format_.channelCount; ++channel)
            std::copy_n(pass.pending[channel].begin() + static_cast<std::ptrdiff_t>(pass.offset), take,
                        buffer.channelData(channel) + count);
        pass.offset += static_cast<std::size_t>(take);
        count += take;
        if (pass.offset >= static_cast<std::size_t>(step) && pass.offset * 2 >= pass.pending[0].size()) {
            for (int channel = 0; channel < format_.channelCount; ++channel)
                pass.pending[channel].erase(pass.pending[channel].begin(),
                                            pass.pending[channel].begin() + static_cast<std::ptrdiff_t>(pass.offset));
            pass.offset = 0;
        }
    }
    buffer.setFrameLength(static_cast<std::uint32_t>(count));
    target_ += count;
    return {};
}

} // namespace hushmeadows
