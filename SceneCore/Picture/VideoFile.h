#pragma once

#include "SceneCore/Runtime/Image.h"
#include "SceneCore/Runtime/ImagePool.h"

#include <expected>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace hushmeadows {

// One decoded picture of a video and when it is shown, in seconds from the
// start of the file's timeline.
struct VideoFrame {
    std::shared_ptr<const Image> image; // 32-bit BGRA, opaque
    double presentationTime = 0;
};

// A video file opened for decoding, one frame after another.
//
// One user at a time: a VideoFile is not safe to use from two threads at once.
class VideoFile {
public:
    virtual ~VideoFile() = default;

    // Frames per second of the video track, 0 when the file does not say.
    virtual double frameRate() const = 0;
    // Seconds, 0 when unknown.
    virtual double duration() const = 0;
    virtual PixelSize pixelSize() const = 0;

    // The next frame in presentation order, in a buffer taken from `pool`;
    // nullopt at the end of the file. The error is a text fit for a log.
    virtual std::expected<std::optional<VideoFrame>, std::string> readFrame(ImagePool& pool) = 0;

    // Back to the first frame: the frames read after it are those of the
    // first pass, exactly.
    virtual std::expected<void, std::string> rewind() = 0;
};

// Opens a video file for decoding. The error is a readable text.
using VideoFileOpener = std::function<std::expected<std::unique_ptr<VideoFile>, std::string>(const std::filesystem::path& file)>;

} // namespace hushmeadows
