#pragma once

#include "SceneCore/Runtime/Image.h"

#include <filesystem>
#include <optional>

namespace hushmeadows {

// Still pictures from files: the whole first image decoded to 8-bit
// components. (A picture's size from its header alone is
// MediaProbe::imagePixelSize.)
class ImageDecoder {
public:
    virtual ~ImageDecoder() = default;
    virtual std::optional<Image> decode(const std::filesystem::path& file, PixelFormat format) const = 0;
};

} // namespace hushmeadows
