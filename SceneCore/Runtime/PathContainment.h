#pragma once

#include <filesystem>

namespace hushmeadows {

// Where a path leads once its links are followed (as far as they exist).
std::filesystem::path resolvedPath(const std::filesystem::path& path);

// Whether `candidate` lies strictly inside `folder`, comparing resolved paths
// by whole components (so "/a/bc" is not inside "/a/b").
bool isPathInside(const std::filesystem::path& candidate, const std::filesystem::path& folder);

} // namespace hushmeadows
