#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace hushmeadows {

// What the core needs of the package the program was installed as: its
// resources folder and its information entries (version texts).
struct Bundle {
    std::optional<std::filesystem::path> resourcesDirectory;
    std::map<std::string, std::string> info;
};

} // namespace hushmeadows
