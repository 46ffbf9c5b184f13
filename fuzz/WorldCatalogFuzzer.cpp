// catalog.json found beside the worlds: any bytes either decode or fail with
// DecodingError; a decoded catalogue survives encoding unchanged and never
// holds an entry or a collection without an id.
//
// fuzz-sources: SceneCore/Runtime/JsonReader.cpp SceneCore/Runtime/DecodingError.cpp
// fuzz-sources: SceneCore/Runtime/Log.cpp SceneCore/Worlds/WorldCatalog.cpp SceneCore/Runtime/FileAccess.cpp SceneCore/Runtime/PrintableText.cpp
// fuzz-sources: SceneCore/Runtime/PathContainment.cpp

#include "SceneCore/Runtime/DecodingError.h"
#include "SceneCore/Worlds/WorldCatalog.h"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::string_view text(reinterpret_cast<const char*>(data), size);
    hushmeadows::WorldCatalog catalog;
    try {
        catalog = hushmeadows::WorldCatalog::decode(text);
    } catch (const hushmeadows::DecodingError&) {
        return 0;
    }
    for (const auto& collection : catalog.collections) {
        if (collection.id.empty())
            std::abort();
        for (const auto& entry : collection.worlds)
            if (entry.id.empty())
                std::abort();
    }
    auto encoded = catalog.toJson().dump();
    auto again = hushmeadows::WorldCatalog::decode(encoded);
    if (!(again == catalog)) {
        std::fprintf(stderr, "round trip changed the catalogue:\n%s\n", encoded.c_str());
        std::abort();
    }
    return 0;
}
