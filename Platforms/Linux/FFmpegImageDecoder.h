#pragma once

#include "SceneCore/Runtime/ImageDecoder.h"

namespace hushmeadows {

// Posters through libavformat and libavcodec, opened as images only (no
// sequences, no other files), converted to RGBA or BGRA with swscale.
class FFmpegImageDecoder final : public ImageDecoder {
public:
    std::optional<Image> decode(const std::filesystem::path& file, PixelFormat format) const override;
};

} // namespace hushmeadows
