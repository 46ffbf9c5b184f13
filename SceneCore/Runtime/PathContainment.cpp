#include "SceneCore/Runtime/PathContainment.h"

#include <string>

namespace hushmeadows {

std::filesystem::path resolvedPath(const std::filesystem::path& path)
{
    std::error_code error;
    auto result = std::filesystem::weakly_canonical(path, error);
    return error ? path.lexically_normal() : result;
}

bool isPathInside(const std::filesystem::path& candidate, const std::filesystem::path& folder)
{
    std::string prefix = resolvedPath(folder).string();
    if (prefix.empty())
        return false;
    if (prefix.back() != '/')
        prefix.push_back('/');
    return resolvedPath(candidate).string().starts_with(prefix);
}

} // namespace hushmeadows
