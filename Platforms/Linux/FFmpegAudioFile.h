#pragma once

#include "SceneCore/Sound/AudioFile.h"

#include <cstdint>
#include <expected>
#include <filesystem>
#include <memory>
#include <string>

namespace hushmeadows {

// An audio file read through libavformat, libavcodec and libswresample.
//
// Processing format: float, the requested sample rate, mono for mono files
// and stereo for everything else (more channels are mixed down by
// libswresample's standard matrix).
//
// Exactness. The frames of the file are defined as what one pass from the
// start gives: decoded (the decoder already leaves out an encoder's priming),
// cut at the true length (so AAC's trailing padding never shows), converted
// and, when the rates differ, resampled. A pass that ends a few frames short
// of the length (a resampler's rounding, or a lossy decoder that loses the
// last frames: Vorbis does on short files) is completed with silence, so that
// a loop keeps its timing; a PCM or FLAC file that ends early reads short.
// Every read returns exactly those frames, however the position was reached:
// - reading on from where the last read ended, or further on (within a second
//   for PCM and FLAC), decodes on and drops what lies between;
// - a codec whose packets decode independently (PCM, FLAC, ALAC) and that is
//   not resampled seeks to the packet before the frame and decodes on from it;
// - everything else (AAC, MP3, Vorbis, Opus, any resampled file) is opened
//   anew and decoded from the start up to the frame, since their seeks are not
//   exact and a resampler's state depends on everything before.
// So reading straight through and looping back to frame 0 are cheap, while a
// jump to the middle of a long AAC or resampled file costs decoding up to it.
//
// Length: FFmpegAudioLength's, stated by the container or counted by decoding
// the whole file once when it is opened (a count that FFmpegInput::abandonAll
// ends at once).
class FFmpegAudioFile final : public AudioFile {
public:
    // Only FFmpegInput's audio demuxers, on a local regular file. The error is
    // a readable text.
    static std::expected<std::unique_ptr<AudioFile>, std::string> open(const std::filesystem::path& file, double sampleRate);

    ~FFmpegAudioFile() override;

    AudioFormat processingFormat() const override { return format_; }
    std::int64_t length() const override { return length_; }
    std::int64_t framePosition() const override { return target_; }
    void setFramePosition(std::int64_t frame) override;
    std::expected<void, std::string> read(PCMBuffer& buffer, std::uint32_t frames) override;
    using AudioFile::read;

    // The file's own rate and its true length in frames at that rate.
    double fileSampleRate() const { return inputRate_; }
    std::int64_t fileLength() const { return inputLength_; }
    // Decoding passes opened so far (the first one included): each is a fresh
    // open of the file, from its start or for a seek. For tests and diagnostics.
    int passesOpened() const { return passesOpened_; }

private:
    struct Pass;

    FFmpegAudioFile() = default;

    // Makes the current pass stand at target_.
    std::expected<void, std::string> reachTarget();
    std::expected<std::unique_ptr<Pass>, std::string> openPass() const;
    std::expected<void, std::string> seekPass(std::int64_t frame);
    // Converts the pass's decoded frame, cut at the true length.
    std::expected<void, std::string> feed(Pass& pass);
    // Decodes until the pass holds at least `frames` frames or ends.
    std::expected<void, std::string> fill(std::int64_t frames);
    std::expected<void, std::string> skipTo(std::int64_t frame);

    std::filesystem::path path_;
    AudioFormat format_;
    double inputRate_ = 0;
    std::int64_t inputLength_ = 0;
    std::int64_t length_ = 0;
    bool independent_ = false; // every packet decodes on its own
    bool exactSeek_ = false;   // ... and no resampler: seeks may land mid-file
    int streamIndex_ = -1;
    std::int64_t target_ = 0;
    std::unique_ptr<Pass> pass_;
    int passesOpened_ = 0;
};

} // namespace hushmeadows
