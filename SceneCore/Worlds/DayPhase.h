#pragma once

#include "SceneCore/Runtime/Calendar.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

namespace hushmeadows {

// Day or night. Night is an hour below 7 or above 18 in the given calendar;
// minutes play no part and there is no dawn or dusk.
class DayPhase {
public:
    enum Value : std::uint8_t { day, night };

    constexpr DayPhase(Value value) : value_(value) {}
    constexpr operator Value() const { return value_; }

    static constexpr std::array<Value, 2> allCases{day, night};

    static DayPhase at(std::chrono::system_clock::time_point date, const Calendar& calendar);
    static DayPhase forHour(int hour) { return hour < 7 || hour > 18 ? night : day; }

    // Exactly "day" or "night", case-sensitive.
    static std::optional<DayPhase> fromRawValue(std::string_view raw);
    constexpr std::string_view rawValue() const { return value_ == day ? "day" : "night"; }

private:
    Value value_;
};

} // namespace hushmeadows
