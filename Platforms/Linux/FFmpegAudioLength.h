#pragma once

#include "Platforms/Linux/FFmpegInput.h"

#include <cstdint>
#include <expected>
#include <filesystem>
#include <optional>
#include <string>

namespace hushmeadows {

// The true length of an audio stream, in frames at the stream's own rate: what
// one pass of decoding from the start gives, the encoder's priming and padding
// left out.
//
// The container's word is taken where it states exactly that: sample counts
// in a header (wav, w64, aiff, flac), an MP4 edit list that leaves out priming
// and padding (mov), Ogg granule positions less Opus's pre-skip, an MP3's
// Xing header with its LAME tag. The others (adts, matroska, caf, an MP3
// without those, or a header that states nothing, like a FLAC whose total is
// zero) state nothing exact and are counted by decoding.
struct FFmpegAudioLength {
    // The stated length of `file`, opened as `input`; nothing when the
    // container does not state it exactly.
    static std::optional<std::int64_t> stated(const std::filesystem::path& file, const FFmpegInput& input, const AVStream& stream);

    // Counts the frames the decoder delivers from the input's position to its
    // end (libavcodec has already trimmed them by the skip and discard
    // information the demuxer passed on). A damaged packet ends the count:
    // what decoded before it is what plays. An abandoned input is an error.
    static std::expected<std::int64_t, std::string> counted(FFmpegInput& input, const AVStream& stream, AVCodecContext& decoder);

};

} // namespace hushmeadows
