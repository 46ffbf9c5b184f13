// Picture headers from untrusted files: the first bytes and the last ones.
// fuzz-sources: SceneCore/Runtime/ImageHeader.cpp
#include "SceneCore/Runtime/ImageHeader.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::string_view bytes(reinterpret_cast<const char*>(data), size);
    auto size_ = hushmeadows::imageHeaderSize(bytes, bytes.substr(bytes.size() > 12 ? bytes.size() - 12 : 0));
    if (size_ && (size_->width <= 0 || size_->height <= 0))
        __builtin_trap();
    return 0;
}
