#pragma once

#include "SceneCore/Runtime/MediaProbe.h"

#include <cstdio>
#include <string>
#include <vector>

namespace hushmeadows {

// `hushmeadows check [--media] PATH...`: one line per package folder on `out`,
// "FOLDER: ok" or "FOLDER: DESCRIPTION". Returns the exit status: 0 when all
// passed, 1 when any failed, 2 for a usage error.
int runCheckCommand(const std::vector<std::string>& arguments, const MediaProbe& media, std::FILE* out, std::FILE* err);

} // namespace hushmeadows
