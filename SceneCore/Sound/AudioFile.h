#pragma once

#include "SceneCore/Sound/PCMBuffer.h"

#include <cstdint>
#include <expected>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

namespace hushmeadows {

// An audio file opened for reading, as float PCM at the rate the graph plays.
//
// The processing format has the graph's sample rate and the file's channel
// count, limited to two: mono stays mono, stereo stays stereo, and files with
// more channels are mixed down to stereo.
//
// Reading is sample-exact: reading n frames after setting framePosition to p
// gives exactly the frames p ..< p + n of reading the whole file from its
// start, whatever the codec, and length is the true length of the sound (an
// encoder's priming and padding are not part of it). Positions are frames at
// the processing rate.
//
// One user at a time: an AudioFile is not safe to use from two threads at once.
class AudioFile {
public:
    virtual ~AudioFile() = default;

    virtual AudioFormat processingFormat() const = 0;
    // Frames at the processing rate.
    virtual std::int64_t length() const = 0;

    // The next frame that read() gives. Setting it is cheap; the work of
    // getting there happens in the next read, which reports its errors.
    // Values are clamped to 0...length.
    virtual std::int64_t framePosition() const = 0;
    virtual void setFramePosition(std::int64_t frame) = 0;

    // Reads up to `frames` frames (and at most the buffer's capacity) from
    // framePosition into the buffer, sets its frameLength to the frames read and
    // advances framePosition by as many. Fewer frames than asked come only at
    // the end of the file, or when the file turns out shorter than its stated
    // length. The buffer's format must equal the processing format. On error
    // the buffer's contents and the position are unspecified; the text says
    // what went wrong, in words fit for a log.
    virtual std::expected<void, std::string> read(PCMBuffer& buffer, std::uint32_t frames) = 0;

    // Reads as much as the buffer holds.
    std::expected<void, std::string> read(PCMBuffer& buffer) { return read(buffer, buffer.frameCapacity()); }
};

// Opens a file for reading at the given processing sample rate. The error is a
// readable text.
using AudioFileOpener =
    std::function<std::expected<std::unique_ptr<AudioFile>, std::string>(const std::filesystem::path& file, double sampleRate)>;

} // namespace hushmeadows
