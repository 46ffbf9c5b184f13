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
    LogCapture() : previous_(Log::setSink(sink_)) {}
    ~LogCapture() { Log::setSink(previous_); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // Rendered lines of one category (all categories when empty), private
    // arguments shown or redacted.
    std::vector<std::string> lines(std::string_view category = {}, bool revealPrivate = true) const
    {
        std::lock_guard lock(sink_->mutex);
        std::vector<std::string> out;
        for (const auto& record : sink_->records)
            if (category.empty() || record.category == category)
                out.push_back(record.render(revealPrivate));
        return out;
    }
    void clear()
    {
        std::lock_guard lock(sink_->mutex);
        sink_->records.clear();
    }

private:
    struct Sink final : LogSink {
        mutable std::mutex mutex;
        std::vector<LogRecord> records;
        void write(const LogRecord& record) override
        {
            std::lock_guard lock(mutex);
            records.push_back(record);
        }
    };
    std::shared_ptr<Sink> sink_ = std::make_shared<Sink>();
    std::shared_ptr<LogSink> previous_;
};

} // namespace hushmeadows::testing
