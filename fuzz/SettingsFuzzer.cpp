// Settings.json as a stranger might write it: any bytes either decode to a
// record that keeps the invariants and survives encoding, or fail with
// DecodingError, never anything else.
//
// fuzz-sources: SceneCore/Runtime/JsonReader.cpp SceneCore/Runtime/DecodingError.cpp
// fuzz-sources: SceneCore/Runtime/Calendar.cpp SceneCore/Worlds/DayPhase.cpp
// fuzz-sources: SceneCore/Settings/HushmeadowsSettings.cpp

#include "SceneCore/Runtime/DecodingError.h"
#include "SceneCore/Settings/HushmeadowsSettings.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string_view>

namespace {

using hushmeadows::HushmeadowsSettings;

void check(bool condition, const char* what)
{
    if (!condition) {
        std::fprintf(stderr, "invariant broken: %s\n", what);
        std::abort();
    }
}

bool inRange(const std::optional<double>& volume) { return !volume || (*volume >= 0 && *volume <= 1); }

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::string_view text(reinterpret_cast<const char*>(data), size);
    HushmeadowsSettings settings;
    try {
        settings = HushmeadowsSettings::decode(text);
    } catch (const hushmeadows::DecodingError&) {
        return 0;
    }

    check(inRange(settings.musicVolume), "musicVolume within 0...1");
    check(inRange(settings.ambienceVolume), "ambienceVolume within 0...1");
    for (const auto& [id, mix] : settings.worldMixes)
        check(inRange(mix.music) && inRange(mix.ambience), "world mix within 0...1");
    std::set<std::string> seen(settings.favouriteWorldIDs.begin(), settings.favouriteWorldIDs.end());
    check(seen.size() == settings.favouriteWorldIDs.size(), "no repeated favourites");
    check(settings.normalized() == settings, "decoded record is normalized");

    auto encoded = settings.encode();
    HushmeadowsSettings again = HushmeadowsSettings::decode(encoded);
    check(again == settings, "encode then decode gives the same record");
    check(again.encode() == encoded, "encoding is stable");
    return 0;
}
