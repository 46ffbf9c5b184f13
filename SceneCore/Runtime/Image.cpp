#include "SceneCore/Runtime/Image.h"

#include "SceneCore/Runtime/Precondition.h"

namespace hushmeadows {

std::optional<std::string> decodedSizeProblem(PixelSize size)
{
    if (size.decodedBytes() <= maximumDecodedImageBytes)
        return std::nullopt;
    return "the picture is " + std::to_string(size.width) + "×" + std::to_string(size.height) + ", too large: over "
        + std::to_string(maximumDecodedImageBytes >> 20) + " MiB once decoded";
}

Image Image::blank(int width, int height, PixelFormat format)
{
    HM_PRECONDITION(width >= 0 && height >= 0, "image dimensions must not be negative");
    Image image;
    image.width = width;
    image.height = height;
    image.format = format;
    image.bytesPerRow = static_cast<std::size_t>(width) * 4;
    image.pixels.assign(image.bytesPerRow * static_cast<std::size_t>(height), 0);
    return image;
}

} // namespace hushmeadows
