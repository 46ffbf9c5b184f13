#pragma once

#include "SceneCore/Picture/VideoFile.h"

#include <map>
#include <string>

namespace hushmeadows::testing {

// Video files that exist only in memory, at the video-file port. Frame i of
// file number f (its place in `frames`) is a 2 × 1 BGRA picture whose first
// pixel has blue = i and green = f, shown at i / rate seconds.
class FakeVideoFiles {
public:
    // Frame counts by file name; a name missing here fails to open, and a
    // count of 0 opens but yields no frame.
    std::map<std::string, int> frames;
    double rate = 48;

    int openNow = 0;  // files open at this moment
    int mostOpen = 0; // the most open at once

    VideoFileOpener opener();

    // What a picture from these files shows: {file number, frame index}.
    static std::pair<int, int> identify(const Image& image) { return {image.pixels[1], image.pixels[0]}; }
};

} // namespace hushmeadows::testing
