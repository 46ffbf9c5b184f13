#pragma once

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace hushmeadows {

// studio.json as written in a world's studio overlay folder. Decoding is
// strict: a missing required key or a wrong type fails it. Kept apart from
// StudioMusic so that untrusted text can be decoded (and fuzzed) alone.
struct StudioMusicManifest {
    struct Track {
        std::string file;
        std::optional<std::int64_t> frames;
        std::vector<std::int64_t> entryPoints;
        bool operator==(const Track&) const = default;
    };
    std::int64_t formatVersion = 1;
    std::string world;
    std::optional<std::string> style;
    std::map<std::string, Track> tracks;
    bool operator==(const StudioMusicManifest&) const = default;

    // Throws DecodingError.
    static StudioMusicManifest decode(std::string_view data);
    nlohmann::json toJson() const;
};

} // namespace hushmeadows
