#include "SceneCore/Worlds/DayPhase.h"

namespace hushmeadows {

DayPhase DayPhase::at(std::chrono::system_clock::time_point date, const Calendar& calendar)
{
    return forHour(calendar.hour(date));
}

std::optional<DayPhase> DayPhase::fromRawValue(std::string_view raw)
{
    if (raw == "day")
        return DayPhase(day);
    if (raw == "night")
        return DayPhase(night);
    return std::nullopt;
}

} // namespace hushmeadows
