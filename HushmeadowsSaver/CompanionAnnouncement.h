#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace hushmeadows {

// The note a screen saver posts at every view creation so that the companion
// application can tell whether the installed saver is recent enough.
struct CompanionAnnouncement {
    static constexpr std::string_view name = "app.hushmeadows.screensaver.present";

    // A version label such as "1.4" (from the text "1.4 (27)"), compared by
    // its dot-separated numbers, the shorter list padded with zeros.
    class Version {
    public:
        explicit Version(std::string_view text);
        const std::string& label() const { return label_; }
        const std::vector<long>& numbers() const { return numbers_; }
        int compare(const Version& other) const;
        bool operator<(const Version& other) const { return compare(other) < 0; }
        bool operator==(const Version& other) const { return compare(other) == 0; }

    private:
        std::string label_;
        std::vector<long> numbers_;
    };

    static Version minimumVersion() { return Version("1.0.0"); }

    // "SHORT (BUILD)" from the saver's two version texts; a missing one is "0".
    static std::string versionText(const std::optional<std::string>& shortVersion, const std::optional<std::string>& buildVersion);
};

} // namespace hushmeadows
