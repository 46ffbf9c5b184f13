#include "tests/support/LogCapture.h"

namespace hushmeadows::testing {

struct LogCapture::Sink final : LogSink {
    mutable std::mutex mutex;
    std::vector<LogRecord> records;
    void write(const LogRecord& record) override
    {
        std::lock_guard lock(mutex);
        records.push_back(record);
    }
};

LogCapture::LogCapture()
    : sink_(std::make_shared<Sink>())
{
    previous_ = Log::setSink(sink_);
}

LogCapture::~LogCapture() { Log::setSink(previous_); }

std::vector<LogRecord> LogCapture::records() const
{
    std::lock_guard lock(sink_->mutex);
    return sink_->records;
}

std::vector<std::string> LogCapture::lines(std::string_view category, bool revealPrivate) const
{
    std::vector<std::string> out;
    for (const auto& record : records())
        if (category.empty() || record.category == category)
            out.push_back(record.render(revealPrivate));
    return out;
}

void LogCapture::clear()
{
    std::lock_guard lock(sink_->mutex);
    sink_->records.clear();
}

} // namespace hushmeadows::testing
