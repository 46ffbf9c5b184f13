#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

#include <expected>
#include <filesystem>
#include <memory>
#include <string>

namespace hushmeadows {

// Owning handles for the FFmpeg objects the adapters use.
struct CodecContextDeleter {
    void operator()(AVCodecContext* context) const noexcept { avcodec_free_context(&context); }
};
struct FrameDeleter {
    void operator()(AVFrame* frame) const noexcept { av_frame_free(&frame); }
};
struct PacketDeleter {
    void operator()(AVPacket* packet) const noexcept { av_packet_free(&packet); }
};
struct SwsContextDeleter {
    void operator()(SwsContext* context) const noexcept { sws_freeContext(context); }
};
struct FormatContextDeleter {
    void operator()(AVFormatContext* context) const noexcept { avformat_close_input(&context); }
};

using CodecContextPtr = std::unique_ptr<AVCodecContext, CodecContextDeleter>;
using FramePtr = std::unique_ptr<AVFrame, FrameDeleter>;
using PacketPtr = std::unique_ptr<AVPacket, PacketDeleter>;
using SwsContextPtr = std::unique_ptr<SwsContext, SwsContextDeleter>;
using FormatContextPtr = std::unique_ptr<AVFormatContext, FormatContextDeleter>;

// Both throw std::bad_alloc when FFmpeg cannot allocate.
FramePtr makeFrame();
PacketPtr makePacket();

// FFmpeg's own text for an AVERROR code.
std::string ffmpegErrorText(int error);

// What a file is opened as; each kind admits only its own demuxers.
enum class MediaKind {
    image, // one still picture: png, jpeg, webp, bmp, tiff, gif
    audio, // wav, w64, aiff, caf, flac, mp3, ogg, adts aac, mp4/m4a, matroska
    video, // mp4/mov/m4v, matroska/webm
};

enum class DecoderFailure {
    noDecoder,      // nothing on this machine decodes the stream's codec
    cannotAllocate, // the codec context could not be made or take the stream's parameters
    cannotStart,    // avcodec_open2 refused
};

struct DecoderError {
    DecoderFailure failure;
    int code = 0; // the AVERROR behind it, 0 when there was none
};

// One local media file opened for demuxing, and nothing else.
//
// The file is opened here (a loaded package's file inside the package folder
// that was loaded, as PosixFileAccess::openForReading does, on every open),
// checked to be a regular file and handed to libavformat through our own
// AVIOContext, so no protocol is ever involved.
// The demuxer is found from the content alone (never from the name, so names
// like "frame%03d.png" are not patterns) and must be one of the kind's
// self-contained demuxers: playlists, concatenation scripts, manifests and
// image sequences are refused. Every nested open a demuxer attempts (external
// references, segments) is refused as well.
class FFmpegInput {
public:
    // Opens the file and reads its stream information. The error is a short
    // readable text.
    static std::expected<FFmpegInput, std::string> open(const std::filesystem::path& file, MediaKind kind);

    // For a process that is ending: from now on every read of every input,
    // open or still to be opened, on any thread, fails at once (AVERROR_EXIT),
    // so that no decode or length count under way holds the exit up. Safe to
    // call from any thread; there is no way back.
    static void abandonAll();

    FFmpegInput(FFmpegInput&&) noexcept;
    FFmpegInput& operator=(FFmpegInput&&) noexcept;
    ~FFmpegInput();

    AVFormatContext& format() const { return *format_; }
    // The demuxer that took the file, e.g. "wav" or "mov,mp4,m4a,3gp,3g2,mj2".
    std::string demuxerName() const;

    // The stream FFmpeg ranks best for the type, or nullptr. Cover art and
    // other attached pictures never count as video.
    AVStream* bestStream(AVMediaType type) const;

    // Finds a decoder for the stream and makes a context for it with the
    // stream's parameters, one decoding thread, not yet opened.
    static std::expected<CodecContextPtr, DecoderError> makeDecoder(const AVStream& stream);
    // Opens a context made by makeDecoder; returns 0 or an AVERROR.
    static int startDecoder(AVCodecContext& decoder);
    // makeDecoder followed by startDecoder.
    static std::expected<CodecContextPtr, DecoderError> openDecoder(const AVStream& stream);

    // Reads packets of the stream and feeds them to the decoder until it
    // gives out a frame. Returns 0 with a frame, AVERROR_EOF once the input is
    // exhausted and the decoder drained, or another AVERROR.
    int decodeNext(AVCodecContext& decoder, const AVStream& stream, AVFrame& frame);

    // Back to the start of the stream, with the decoder emptied, so that
    // decodeNext gives the first frames again. Returns 0 or an AVERROR.
    int rewind(AVCodecContext& decoder, const AVStream& stream);

    // The stream's stated length in seconds (the container's when the
    // stream states none), 0 when neither says.
    double durationSeconds(const AVStream& stream) const;

private:
    struct Source;
    FFmpegInput(std::unique_ptr<Source> source, FormatContextPtr format);

    // Declared first so that it outlives the format context that reads it.
    std::unique_ptr<Source> source_;
    FormatContextPtr format_;
    PacketPtr packet_;
    bool inputEnded_ = false;
};

} // namespace hushmeadows
