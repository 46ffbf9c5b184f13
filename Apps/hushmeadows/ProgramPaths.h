#pragma once

#include "SceneCore/Runtime/Bundle.h"

#include <filesystem>
#include <optional>

namespace hushmeadows {

// Where the program finds its own resources: "Resources" beside the
// executable in a build tree, or "../share/hushmeadows" when installed.
Bundle programBundle();

// The program's bundled worlds folder, when it has one.
std::optional<std::filesystem::path> bundledWorldsFolder();

} // namespace hushmeadows
