#pragma once

#include "SceneCore/Runtime/Image.h"

#include <filesystem>
#include <optional>

namespace hushmeadows {

// Still pictures from files: the header's pixel size alone, or the whole
// first image decoded to 8-bit components.
class ImageDecoder {
public:
    virtual ~ImageDecoder() = default;
    virtual std::optional<PixelSize> pixelSize(const std::filesystem::path& file) const = 0;
    virtual std::optional<Image> decode(const std::filesystem::path& file, PixelFormat format) const = 0;
};

} // namespace hushmeadows
