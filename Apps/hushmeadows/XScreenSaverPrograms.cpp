#include "Apps/hushmeadows/XScreenSaverPrograms.h"

#include <cstddef>
#include <sstream>
#include <vector>

namespace hushmeadows {

namespace {

std::vector<std::string> linesOf(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

bool continues(const std::string& line) { return !line.empty() && line.back() == '\\'; }

std::string trimmed(std::string text)
{
    auto first = text.find_first_not_of(" \t");
    auto last = text.find_last_not_of(" \t");
    return first == std::string::npos ? std::string() : text.substr(first, last - first + 1);
}

} // namespace

std::string withHackListed(const std::string& text, const std::string& entry)
{
    std::vector<std::string> lines = linesOf(text);
    std::size_t start = 0;
    while (start < lines.size() && !lines[start].starts_with("programs:"))
        ++start;
    const std::string listed = "  " + entry + " \\n\\";
    if (start == lines.size()) {
        std::string result = text;
        if (!result.empty() && result.back() != '\n')
            result += '\n';
        return result + "programs: \\\n" + listed + "\n\n";
    }
    // The resource runs on while its lines end in a backslash.
    std::size_t end = start;
    while (end + 1 < lines.size() && continues(lines[end]))
        ++end;
    for (std::size_t i = start; i <= end; ++i) {
        if (lines[i].find(entry) != std::string::npos)
            return text;
    }
    if (continues(lines[end]) || trimmed(lines[end]).empty()) {
        // The list ends with a continued line (end of file) or a blank line.
        std::size_t at = continues(lines[end]) ? end + 1 : end;
        lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(at), listed);
    } else {
        // The resource ends on a line of its own: a bare "programs:" gets a
        // continuation, a last entry its line break too.
        lines[end] += trimmed(lines[end]) == "programs:" ? " \\" : " \\n\\";
        lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(end) + 1, "  " + entry);
    }
    std::string result;
    for (const auto& line : lines)
        result += line + '\n';
    return result;
}

} // namespace hushmeadows
