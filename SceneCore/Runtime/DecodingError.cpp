#include "SceneCore/Runtime/DecodingError.h"

namespace hushmeadows {

DecodingError::DecodingError(Kind kind, std::vector<std::string> codingPath, std::string debugDescription)
    : std::runtime_error(debugDescription)
    , kind_(kind)
    , codingPath_(std::move(codingPath))
    , debugDescription_(std::move(debugDescription))
{
}

std::string DecodingError::dottedPath() const
{
    std::string joined;
    for (const auto& key : codingPath_) {
        if (!joined.empty())
            joined.push_back('.');
        joined += key;
    }
    return joined;
}

} // namespace hushmeadows
