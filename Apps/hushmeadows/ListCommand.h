#pragma once

#include "SceneCore/Runtime/MediaProbe.h"

#include <cstdio>
#include <string>
#include <vector>

namespace hushmeadows {

// `hushmeadows list [--file PATH]`: the library as the saver builds it, in
// order, one world a line: a "*" on the world the saver would choose, then
// id, name, folder and source, separated by tabs; then one line per package
// that failed ("failed" and its description).
int runListCommand(const std::vector<std::string>& arguments, const MediaProbe& media, std::FILE* out, std::FILE* err);

} // namespace hushmeadows
