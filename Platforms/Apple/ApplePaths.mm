#import "Platforms/Apple/ApplePaths.h"

#include <sys/syslimits.h>

#include <array>

namespace hushmeadows {

NSURL* fileURL(const std::filesystem::path& file)
{
    return [NSURL fileURLWithFileSystemRepresentation:file.c_str() isDirectory:NO relativeToURL:nil];
}

std::optional<std::filesystem::path> filePath(NSURL* url)
{
    if (!url || !url.isFileURL)
        return std::nullopt;
    std::array<char, PATH_MAX + 1> buffer{};
    if (![url getFileSystemRepresentation:buffer.data() maxLength:buffer.size()])
        return std::nullopt;
    return std::filesystem::path(buffer.data());
}

std::string utf8Text(NSString* text)
{
    const char* bytes = text ? text.UTF8String : nullptr;
    return bytes ? std::string(bytes) : std::string();
}

NSString* nsText(const std::string& text)
{
    NSString* result = [[NSString alloc] initWithBytes:text.data() length:text.size() encoding:NSUTF8StringEncoding];
    if (!result)
        result = [[NSString alloc] initWithBytes:text.data() length:text.size() encoding:NSISOLatin1StringEncoding];
    return result ?: @"";
}

std::string errorText(NSError* error, const char* fallback)
{
    std::string text = utf8Text(error.localizedDescription);
    return text.empty() ? std::string(fallback) : text;
}

} // namespace hushmeadows
