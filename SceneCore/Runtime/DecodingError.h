#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace hushmeadows {

// A structured JSON decoding failure: what went wrong and where. The coding
// path holds object keys and, for array elements, "Index N".
class DecodingError : public std::runtime_error {
public:
    enum class Kind { keyNotFound, typeMismatch, valueNotFound, dataCorrupted };

    DecodingError(Kind kind, std::vector<std::string> codingPath, std::string debugDescription);

    Kind kind() const { return kind_; }
    const std::vector<std::string>& codingPath() const { return codingPath_; }
    const std::string& debugDescription() const { return debugDescription_; }

    // The coding path's names joined with ".".
    std::string dottedPath() const;

private:
    Kind kind_;
    std::vector<std::string> codingPath_;
    std::string debugDescription_;
};

} // namespace hushmeadows
