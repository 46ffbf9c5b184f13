#pragma once

#include "SceneCore/Runtime/MediaProbe.h"

#include <cstdio>
#include <string>
#include <vector>

namespace hushmeadows {

// `hushmeadows saver [--root] [--window-id ID]`: the screen saver itself.
// - Run by XScreenSaver (XSCREENSAVER_WINDOW names the window): one view on
//   that window, a real activation; the daemon's SIGTERM, its graphics
//   process dying, or the window being destroyed stop picture and sound at
//   once and end the process.
// - With --window-id: the settings dialog's preview, no sound.
// - With no window: covers every monitor itself, one view per monitor, until
//   a key, a click, a pointer move or SIGTERM.
// -fps, -install and -visual V are accepted and ignored, as by every hack.
// Returns 0 after a stop, 1 when there is no display or window, 2 for a
// usage error.
int runSaverCommand(const std::vector<std::string>& arguments, const MediaProbe& media, std::FILE* out, std::FILE* err);

} // namespace hushmeadows
