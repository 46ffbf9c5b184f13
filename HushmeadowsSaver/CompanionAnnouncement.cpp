#include "HushmeadowsSaver/CompanionAnnouncement.h"

#include <algorithm>

namespace hushmeadows {

CompanionAnnouncement::Version::Version(std::string_view text)
{
    // The label is what stands before the build number in brackets.
    auto end = text.find(" (");
    label_ = std::string(text.substr(0, end));
    std::string_view rest = label_;
    while (true) {
        auto dot = rest.find('.');
        std::string_view piece = rest.substr(0, dot);
        long value = 0;
        for (char c : piece) {
            if (c < '0' || c > '9')
                break;
            value = std::min(value * 10 + (c - '0'), 1'000'000'000L);
        }
        numbers_.push_back(value);
        if (dot == std::string_view::npos)
            break;
        rest.remove_prefix(dot + 1);
    }
}

int CompanionAnnouncement::Version::compare(const Version& other) const
{
    std::size_t count = std::max(numbers_.size(), other.numbers_.size());
    for (std::size_t i = 0; i < count; ++i) {
        long a = i < numbers_.size() ? numbers_[i] : 0;
        long b = i < other.numbers_.size() ? other.numbers_[i] : 0;
        if (a != b)
            return a < b ? -1 : 1;
    }
    return 0;
}

std::string CompanionAnnouncement::versionText(const std::optional<std::string>& shortVersion, const std::optional<std::string>& buildVersion)
{
    return shortVersion.value_or("0") + " (" + buildVersion.value_or("0") + ")";
}

} // namespace hushmeadows
