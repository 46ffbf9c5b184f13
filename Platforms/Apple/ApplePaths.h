#pragma once

// Objective-C++ only. Conversions between the core's paths and texts and
// Foundation's that hold for any bytes: a path that is not valid UTF-8 goes
// through its file-system representation, never through an NSString that
// could come out nil, so no folder name can crash the host.

#import <Foundation/Foundation.h>

#include <filesystem>
#include <optional>
#include <string>

namespace hushmeadows {

NSURL* fileURL(const std::filesystem::path& file);
// Nothing for a URL that is not a file URL or has no representation.
std::optional<std::filesystem::path> filePath(NSURL* url);
// The UTF-8 bytes of a text; empty for nil or a text without them.
std::string utf8Text(NSString* text);
// A text from bytes that should be UTF-8; bytes that are not are read as
// Latin-1, so the result is never nil.
NSString* nsText(const std::string& text);
// An error's description for a log line.
std::string errorText(NSError* error, const char* fallback);

} // namespace hushmeadows
