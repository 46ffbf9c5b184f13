#include "Platforms/Linux/FFmpegInput.h"

#include "Platforms/Posix/PosixFileAccess.h"
#include "SceneCore/Picture/VideoFile.h"

extern "C" {
#include <libavutil/avstring.h>
#include <libavutil/error.h>
#include <libavutil/mem.h>
}

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <new>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace hushmeadows {

namespace {

constexpr int ioBufferSize = 32 * 1024;

std::atomic<bool> abandoned{false};

// Also asked by libavformat between the steps of its own longer loops.
int abandonedCheck(void*)
{
    return abandoned.load(std::memory_order_relaxed) ? 1 : 0;
}

// Demuxers that read one self-contained file. Names are matched against each
// of the comma-separated names a demuxer carries, as FFmpeg's own whitelist
// does ("mov" admits "mov,mp4,m4a,3gp,3g2,mj2").
const char* allowedDemuxers(MediaKind kind)
{
    switch (kind) {
    case MediaKind::image: return "png_pipe,apng,jpeg_pipe,webp_pipe,bmp_pipe,tiff_pipe,gif,gif_pipe";
    case MediaKind::audio: return "wav,w64,aiff,caf,flac,mp3,ogg,aac,mov,matroska";
    case MediaKind::video: return "mov,matroska";
    }
    return "";
}

// Installed as AVFormatContext::io_open: a demuxer that wants a second file or
// URL (segments, external data references) never gets one.
int refuseNestedOpen(AVFormatContext*, AVIOContext**, const char*, int, AVDictionary**)
{
    return AVERROR(EPERM);
}

constexpr std::int64_t largestVideoPixels = std::int64_t{VideoFile::largestFrameSide} * VideoFile::largestFrameSide;

bool statesOversizedVideo(const AVFormatContext& format)
{
    for (unsigned index = 0; index < format.nb_streams; ++index) {
        const AVStream& candidate = *format.streams[index];
        const AVCodecParameters& stream = *candidate.codecpar;
        if (stream.codec_type == AVMEDIA_TYPE_VIDEO && !(candidate.disposition & AV_DISPOSITION_ATTACHED_PIC) && stream.width > 0
            && stream.height > 0 && VideoFile::frameSizeProblem({stream.width, stream.height}))
            return true;
    }
    return false;
}

struct DictionaryDeleter {
    void operator()(AVDictionary* dictionary) const noexcept { av_dict_free(&dictionary); }
};

} // namespace

FramePtr makeFrame()
{
    FramePtr frame(av_frame_alloc());
    if (!frame)
        throw std::bad_alloc();
    return frame;
}

PacketPtr makePacket()
{
    PacketPtr packet(av_packet_alloc());
    if (!packet)
        throw std::bad_alloc();
    return packet;
}

std::string ffmpegErrorText(int error)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    if (av_strerror(error, text, sizeof text) < 0)
        return "error " + std::to_string(error);
    return text;
}

// The opened file and the AVIOContext that reads it.
struct FFmpegInput::Source {
    int descriptor = -1;
    AVIOContext* io = nullptr;

    ~Source()
    {
        if (io) {
            av_freep(&io->buffer); // avio may have replaced the buffer it was given
            avio_context_free(&io);
        }
        if (descriptor >= 0)
            ::close(descriptor);
    }

    static int read(void* opaque, std::uint8_t* buffer, int size)
    {
        auto* source = static_cast<Source*>(opaque);
        for (;;) {
            if (abandoned.load(std::memory_order_relaxed))
                return AVERROR_EXIT;
            ssize_t count = ::read(source->descriptor, buffer, static_cast<std::size_t>(size));
            if (count > 0)
                return static_cast<int>(count);
            if (count == 0)
                return AVERROR_EOF;
            if (errno != EINTR)
                return AVERROR(errno);
        }
    }

    static std::int64_t seek(void* opaque, std::int64_t offset, int whence)
    {
        auto* source = static_cast<Source*>(opaque);
        if (whence & AVSEEK_SIZE) {
            struct stat status {};
            if (::fstat(source->descriptor, &status) != 0)
                return AVERROR(errno);
            return status.st_size;
        }
        off_t position = ::lseek(source->descriptor, static_cast<off_t>(offset), whence & ~AVSEEK_FORCE);
        return position < 0 ? AVERROR(errno) : static_cast<std::int64_t>(position);
    }
};

FFmpegInput::FFmpegInput(std::unique_ptr<Source> source, FormatContextPtr format)
    : source_(std::move(source))
    , format_(std::move(format))
    , packet_(makePacket())
{
}

FFmpegInput::FFmpegInput(FFmpegInput&&) noexcept = default;
FFmpegInput& FFmpegInput::operator=(FFmpegInput&&) noexcept = default;
FFmpegInput::~FFmpegInput() = default;

std::expected<FFmpegInput, std::string> FFmpegInput::open(const std::filesystem::path& file, MediaKind kind)
{
    auto source = std::make_unique<Source>();
    // Non-blocking so that a FIFO cannot stall the open; it is refused below.
    // A package's file is opened inside the package folder that was loaded.
    auto opened = PosixFileAccess::openForReading(file);
    if (!opened && opened.error() == PosixFileAccess::outsideError)
        return std::unexpected(std::string("cannot open the file: it leads outside its world package"));
    if (!opened)
        return std::unexpected("cannot open the file: " + ffmpegErrorText(AVERROR(opened.error())));
    source->descriptor = *opened;
    struct stat status {};
    if (::fstat(source->descriptor, &status) != 0 || !S_ISREG(status.st_mode))
        return std::unexpected(std::string("not a regular file"));
    if (status.st_size == 0)
        return std::unexpected(std::string("the file is empty"));
    int flags = ::fcntl(source->descriptor, F_GETFL);
    if (flags >= 0)
        ::fcntl(source->descriptor, F_SETFL, flags & ~O_NONBLOCK);

    auto* buffer = static_cast<std::uint8_t*>(av_malloc(ioBufferSize));
    if (!buffer)
        throw std::bad_alloc();
    source->io = avio_alloc_context(buffer, ioBufferSize, 0, source.get(), &Source::read, nullptr, &Source::seek);
    if (!source->io) {
        av_free(buffer);
        throw std::bad_alloc();
    }

    AVFormatContext* context = avformat_alloc_context();
    if (!context)
        throw std::bad_alloc();
    context->pb = source->io;
    context->flags |= AVFMT_FLAG_CUSTOM_IO;
    context->io_open = &refuseNestedOpen;
    context->interrupt_callback = AVIOInterruptCB{&abandonedCheck, nullptr};

    const char* demuxers = allowedDemuxers(kind);
    AVDictionary* rawOptions = nullptr;
    av_dict_set(&rawOptions, "format_whitelist", demuxers, 0);
    av_dict_set(&rawOptions, "protocol_whitelist", "file", 0);
    // The URL is left empty on purpose: demuxers are then chosen by content
    // only, and none can derive names of further files from it.
    int result = avformat_open_input(&context, "", nullptr, &rawOptions);
    std::unique_ptr<AVDictionary, DictionaryDeleter> options(rawOptions);
    if (result < 0) // avformat_open_input has freed the context
        return std::unexpected("not a readable media file: " + ffmpegErrorText(result));
    FormatContextPtr format(context);
    if (options)
        return std::unexpected(std::string("the demuxer did not accept its restrictions"));
    // FFmpeg has checked the whitelist already; check again so that a change of
    // its behaviour cannot let another demuxer through unnoticed.
    if (!format->iformat || av_match_list(format->iformat->name, demuxers, ',') <= 0
        || (format->iformat->flags & AVFMT_NOFILE))
        return std::unexpected(std::string("not an accepted media format"));

    // A video whose header states frames too large to show is not probed
    // further: probing decodes frames, and its users refuse it from this
    // header alone.
    if (kind == MediaKind::video && statesOversizedVideo(*format))
        return FFmpegInput(std::move(source), std::move(format));

    // Decoders opened while probing stream parameters also use one thread,
    // and none makes a picture larger than a video may have.
    std::vector<AVDictionary*> streamOptions(format->nb_streams, nullptr);
    for (auto& entry : streamOptions) {
        av_dict_set(&entry, "threads", "1", 0);
        if (kind == MediaKind::video)
            av_dict_set_int(&entry, "max_pixels", largestVideoPixels, 0);
    }
    result = avformat_find_stream_info(format.get(), streamOptions.empty() ? nullptr : streamOptions.data());
    for (auto& entry : streamOptions)
        av_dict_free(&entry);
    if (result < 0)
        return std::unexpected("cannot read the stream information: " + ffmpegErrorText(result));
    if (format->nb_streams == 0)
        return std::unexpected(std::string("the file holds no streams"));

    return FFmpegInput(std::move(source), std::move(format));
}

void FFmpegInput::abandonAll()
{
    abandoned.store(true, std::memory_order_relaxed);
}

std::string FFmpegInput::demuxerName() const
{
    return format_->iformat && format_->iformat->name ? format_->iformat->name : "";
}

AVStream* FFmpegInput::bestStream(AVMediaType type) const
{
    auto isCandidate = [type](const AVStream* stream) {
        if (stream->codecpar->codec_type != type)
            return false;
        return type != AVMEDIA_TYPE_VIDEO || !(stream->disposition & AV_DISPOSITION_ATTACHED_PIC);
    };
    int best = av_find_best_stream(format_.get(), type, -1, -1, nullptr, 0);
    if (best >= 0 && isCandidate(format_->streams[best]))
        return format_->streams[best];
    for (unsigned index = 0; index < format_->nb_streams; ++index) {
        if (isCandidate(format_->streams[index]))
            return format_->streams[index];
    }
    return nullptr;
}

std::expected<CodecContextPtr, DecoderError> FFmpegInput::makeDecoder(const AVStream& stream)
{
    const AVCodec* codec = avcodec_find_decoder(stream.codecpar->codec_id);
    if (!codec)
        return std::unexpected(DecoderError{DecoderFailure::noDecoder});
    CodecContextPtr decoder(avcodec_alloc_context3(codec));
    if (!decoder)
        return std::unexpected(DecoderError{DecoderFailure::cannotAllocate, AVERROR(ENOMEM)});
    if (int result = avcodec_parameters_to_context(decoder.get(), stream.codecpar); result < 0)
        return std::unexpected(DecoderError{DecoderFailure::cannotAllocate, result});
    decoder->pkt_timebase = stream.time_base;
    // FFmpeg's own thread pool races inside libavutil and costs more CPU per
    // frame than it saves on these small clips.
    decoder->thread_count = 1;
    return decoder;
}

int FFmpegInput::startDecoder(AVCodecContext& decoder)
{
    return avcodec_open2(&decoder, decoder.codec, nullptr);
}

std::expected<CodecContextPtr, DecoderError> FFmpegInput::openDecoder(const AVStream& stream)
{
    auto decoder = makeDecoder(stream);
    if (!decoder)
        return decoder;
    if (int result = startDecoder(**decoder); result < 0)
        return std::unexpected(DecoderError{DecoderFailure::cannotStart, result});
    return decoder;
}

int FFmpegInput::decodeNext(AVCodecContext& decoder, const AVStream& stream, AVFrame& frame)
{
    for (;;) {
        int result = avcodec_receive_frame(&decoder, &frame);
        if (result != AVERROR(EAGAIN))
            return result;
        if (inputEnded_)
            return AVERROR_EOF;
        result = av_read_frame(format_.get(), packet_.get());
        if (result == AVERROR_EOF) {
            inputEnded_ = true;
            result = avcodec_send_packet(&decoder, nullptr); // drain what the decoder holds
            if (result < 0 && result != AVERROR_EOF)
                return result;
            continue;
        }
        if (result < 0)
            return result;
        if (packet_->stream_index == stream.index)
            result = avcodec_send_packet(&decoder, packet_.get());
        av_packet_unref(packet_.get());
        if (result < 0)
            return result;
    }
}

int FFmpegInput::rewind(AVCodecContext& decoder, const AVStream& stream)
{
    const std::int64_t start = stream.start_time != AV_NOPTS_VALUE ? stream.start_time : 0;
    int result = av_seek_frame(format_.get(), stream.index, start, AVSEEK_FLAG_BACKWARD);
    if (result < 0)
        return result;
    avcodec_flush_buffers(&decoder);
    inputEnded_ = false;
    return 0;
}

double FFmpegInput::durationSeconds(const AVStream& stream) const
{
    if (stream.duration != AV_NOPTS_VALUE && stream.duration > 0)
        return static_cast<double>(stream.duration) * av_q2d(stream.time_base);
    if (format_->duration != AV_NOPTS_VALUE && format_->duration > 0)
        return static_cast<double>(format_->duration) / AV_TIME_BASE;
    return 0;
}

} // namespace hushmeadows
