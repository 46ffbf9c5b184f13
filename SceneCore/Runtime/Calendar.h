#pragma once

#include <chrono>
#include <optional>

namespace hushmeadows {

// Which hour of the day a moment is, in some time zone: the user's current one
// or a fixed offset from UTC.
class Calendar {
public:
    static Calendar current();
    static Calendar fixedOffset(std::chrono::seconds fromUTC);

    // The hour (0 to 23) of the moment in this calendar.
    int hour(std::chrono::system_clock::time_point moment) const;

private:
    explicit Calendar(std::optional<std::chrono::seconds> offset) : offset_(offset) {}
    std::optional<std::chrono::seconds> offset_;
};

} // namespace hushmeadows
