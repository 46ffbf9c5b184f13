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
    // The largest frame a video may have, on each side: a file states its own
    // picture size, and a hostile one must not make every pooled frame huge.
    // Four times 4K, and far beyond pixel art.
    static constexpr int largestFrameSide = 4096;

    // Why frames of this size cannot be shown, in words a person can act on;
    // nothing when they can.
    static std::optional<std::string> frameSizeProblem(PixelSize size)
    {
        if (size.width <= 0 || size.height <= 0)
            return std::string("the video states no picture size");
        if (size.width > largestFrameSide || size.height > largestFrameSide)
            return "the video is " + std::to_string(size.width) + "×" + std::to_string(size.height) + ", larger than the "
                + std::to_string(largestFrameSide) + "×" + std::to_string(largestFrameSide) + " the saver can show";
        return std::nullopt;
    }

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
