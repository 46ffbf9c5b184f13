// studio.json from an installed overlay: any bytes either decode or fail with
// DecodingError; a decoded manifest survives encoding unchanged.
//
// fuzz-sources: SceneCore/Runtime/JsonReader.cpp SceneCore/Runtime/DecodingError.cpp
// fuzz-sources: SceneCore/Sound/StudioMusicManifest.cpp

#include "SceneCore/Runtime/DecodingError.h"
#include "SceneCore/Sound/StudioMusicManifest.h"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::string_view text(reinterpret_cast<const char*>(data), size);
    hushmeadows::StudioMusicManifest manifest;
    try {
        manifest = hushmeadows::StudioMusicManifest::decode(text);
    } catch (const hushmeadows::DecodingError&) {
        return 0;
    }
    auto encoded = manifest.toJson().dump();
    auto again = hushmeadows::StudioMusicManifest::decode(encoded);
    if (!(again == manifest)) {
        std::fprintf(stderr, "round trip changed studio.json:\n%s\n", encoded.c_str());
        std::abort();
    }
    return 0;
}
