#pragma once

#include <string>

namespace hushmeadows {

// The text of an XScreenSaver preferences file with entry (one hack's command
// line) added at the end of its programs: list; the text itself when the
// list already holds that command line. A text with no programs: resource
// gets one at its end. Every other line stays as it was.
std::string withHackListed(const std::string& text, const std::string& entry);

} // namespace hushmeadows
