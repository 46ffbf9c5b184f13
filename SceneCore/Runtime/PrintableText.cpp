#include "SceneCore/Runtime/PrintableText.h"

#include <cstdio>

namespace hushmeadows {

std::string printable(std::string_view text)
{
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        auto byte = static_cast<unsigned char>(text[i]);
        // U+0080…U+009F arrive in UTF-8 as 0xC2 followed by 0x80…0x9F.
        bool c1 = byte == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) >= 0x80
            && static_cast<unsigned char>(text[i + 1]) <= 0x9F;
        if (byte >= 0x20 && byte != 0x7F && !c1) {
            result.push_back(text[i]);
            continue;
        }
        if (byte == '\n') {
            result += "\\n";
        } else if (byte == '\t') {
            result += "\\t";
        } else if (byte == '\r') {
            result += "\\r";
        } else {
            unsigned code = c1 ? static_cast<unsigned char>(text[++i]) : byte;
            char escape[8];
            std::snprintf(escape, sizeof escape, c1 ? "\\u%04x" : "\\x%02x", code);
            result += escape;
        }
    }
    return result;
}

std::string printableExcerpt(std::string_view text, std::size_t limit)
{
    std::string shown = printable(text);
    if (shown.size() <= limit)
        return shown;
    std::size_t cut = limit;
    // Never split a UTF-8 sequence.
    while (cut > 0 && (static_cast<unsigned char>(shown[cut]) & 0xC0) == 0x80)
        --cut;
    return shown.substr(0, cut) + "…";
}

} // namespace hushmeadows
