#pragma once

#include "SceneCore/Runtime/MediaProbe.h"
#include "SceneCore/Settings/HushmeadowsSettings.h"
#include "SceneCore/Worlds/WorldPackage.h"

#include <expected>
#include <optional>
#include <string>

namespace hushmeadows {

// The world a command names: a package folder (…/NAME.hushmeadow), a world id
// from the library, or, without an argument, the world the saver would
// choose. The error says why there is none, ready for stderr.
std::expected<WorldPackage, std::string> findWorld(const std::optional<std::string>& argument, const HushmeadowsSettings& settings,
                                                   const MediaProbe& media);

} // namespace hushmeadows
