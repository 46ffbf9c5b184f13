#include "SceneCore/Runtime/Calendar.h"

#include <ctime>

namespace hushmeadows {

Calendar Calendar::current() { return Calendar(std::nullopt); }

Calendar Calendar::fixedOffset(std::chrono::seconds fromUTC) { return Calendar(fromUTC); }

int Calendar::hour(std::chrono::system_clock::time_point moment) const
{
    using namespace std::chrono;
    if (offset_) {
        auto local = floor<seconds>(moment) + *offset_;
        auto sinceMidnight = local - floor<days>(local);
        return static_cast<int>(duration_cast<hours>(sinceMidnight).count());
    }
    std::time_t t = system_clock::to_time_t(moment);
    std::tm parts{};
    localtime_r(&t, &parts);
    return parts.tm_hour;
}

} // namespace hushmeadows
