#pragma once

#include "Platforms/Linux/FFmpegInput.h"
#include "SceneCore/Runtime/Image.h"

namespace hushmeadows {

// Converts decoded video frames to 32-bit BGRA of the same size with
// libswscale: the one conversion path of the media check and of playback.
// Keeps its swscale context while the frames' size and format stay the same.
class FFmpegBGRAConverter {
public:
    // Whether swscale takes frames of this kind to BGRA. It must never see a
    // format it does not know: it aborts.
    static bool accepts(int width, int height, AVPixelFormat format);

    // Writes the frame into `into`, which must be BGRA of the frame's size.
    // False when swscale cannot convert it.
    bool convert(const AVFrame& frame, Image& into);

private:
    SwsContextPtr context_;
    int width_ = 0;
    int height_ = 0;
    AVPixelFormat format_ = AV_PIX_FMT_NONE;
};

} // namespace hushmeadows
