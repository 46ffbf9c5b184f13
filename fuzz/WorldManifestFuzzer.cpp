// world.json from an untrusted package: any bytes either decode or fail with
// DecodingError; a manifest that decodes survives encoding unchanged.
//
// fuzz-sources: SceneCore/Runtime/JsonReader.cpp SceneCore/Runtime/DecodingError.cpp
// fuzz-sources: SceneCore/Runtime/Calendar.cpp SceneCore/Worlds/DayPhase.cpp SceneCore/Worlds/WorldTheme.cpp
// fuzz-sources: SceneCore/Worlds/WorldManifest.cpp

#include "SceneCore/Runtime/DecodingError.h"
#include "SceneCore/Worlds/WorldManifest.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::string_view text(reinterpret_cast<const char*>(data), size);
    hushmeadows::WorldManifest manifest;
    try {
        manifest = hushmeadows::WorldManifest::decode(text);
    } catch (const hushmeadows::DecodingError&) {
        return 0;
    }

    auto encoded = manifest.encode();
    hushmeadows::WorldManifest again;
    try {
        again = hushmeadows::WorldManifest::decode(encoded);
    } catch (const hushmeadows::DecodingError& error) {
        std::fprintf(stderr, "re-decoding failed at '%s': %s\nencoded:\n%s\n", error.dottedPath().c_str(), error.what(), encoded.c_str());
        std::abort();
    }
    if (!(again == manifest)) {
        std::fprintf(stderr, "round trip changed the manifest\nencoded:\n%s\nre-encoded:\n%s\n", encoded.c_str(), again.encode().c_str());
        std::abort();
    }
    return 0;
}
