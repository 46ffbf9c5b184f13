#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace hushmeadows {

// Which kind of music a world is heard with: its own ("classic") or the
// studio overlay's ("studio").
class MusicStyle {
public:
    enum Value : std::uint8_t { classic, studio };

    constexpr MusicStyle(Value value) : value_(value) {}
    constexpr operator Value() const { return value_; }

    static constexpr std::array<Value, 2> allCases{classic, studio};

    static constexpr std::optional<MusicStyle> fromRawValue(std::string_view raw)
    {
        if (raw == "classic")
            return MusicStyle(classic);
        if (raw == "studio")
            return MusicStyle(studio);
        return std::nullopt;
    }
    constexpr std::string_view rawValue() const { return value_ == classic ? "classic" : "studio"; }

    // The other of the two styles.
    constexpr MusicStyle other() const { return value_ == classic ? studio : classic; }

private:
    Value value_;
};

} // namespace hushmeadows
