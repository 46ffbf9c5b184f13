#pragma once

#include "SceneCore/Runtime/Log.h"

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace hushmeadows::testing {

// Collects every log record while it lives; the previous sink comes back after.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogRecord> records() const;
    // Rendered lines of one category (all categories when empty), private
    // arguments shown or redacted.
    std::vector<std::string> lines(std::string_view category = {}, bool revealPrivate = true) const;
    void clear();

private:
    struct Sink;
    std::shared_ptr<Sink> sink_;
    std::shared_ptr<LogSink> previous_;
};

} // namespace hushmeadows::testing
