#pragma once

#include "SceneCore/Runtime/Image.h"

#include <optional>
#include <string_view>

namespace hushmeadows {

// The pixel size a PNG or baseline/progressive JPEG states in its header,
// read from the file's first bytes (`head`) and judged complete by its last
// bytes (`tail`: a PNG ends with its IEND chunk, a JPEG with its end-of-image
// marker), so a cut-off file has no size. Nothing for any other content, or
// when the size is not within the first bytes given: callers then ask a
// decoder. Never decodes a pixel.
std::optional<PixelSize> imageHeaderSize(std::string_view head, std::string_view tail);

} // namespace hushmeadows
