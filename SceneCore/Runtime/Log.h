#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

namespace hushmeadows {

enum class LogLevel { debug, info, defaultLevel, error, fault };

std::string_view name(LogLevel level);

// One argument of a log line. Privacy is decided by the format's annotation
// ({public} / {private}); without one, texts are private and numbers public,
// as the system log does it.
using LogValue = std::variant<std::int64_t, std::uint64_t, double, bool, std::string>;

struct LogRecord {
    std::string subsystem;
    std::string category;
    LogLevel level = LogLevel::defaultLevel;
    std::string format;
    std::vector<LogValue> arguments;

    // The line as the system log shows it: private arguments become "<private>"
    // unless revealPrivate is set.
    std::string render(bool revealPrivate) const;
};

// Where finished records go. Called from any thread (never from the audio
// render callback), one record at a time.
class LogSink {
public:
    virtual ~LogSink() = default;
    virtual void write(const LogRecord& record) = 0;
};

// Renders an os_log-style format with its typed arguments.
// Supported: %{public}s %{private}s %{bool}d %s %d %i %u %ld %lld %lu %llu %zu %x
// %f %.Nf %.*f %g %c %% and any {public}/{private} annotation on them.
std::string renderLogFormat(std::string_view format, const std::vector<LogValue>& arguments, bool revealPrivate);

class Logger {
public:
    constexpr explicit Logger(std::string_view category) : category_(category) {}

    std::string_view category() const { return category_; }

    template <typename... Args>
    void log(LogLevel level, std::string_view format, Args&&... args) const
    {
        std::vector<LogValue> values;
        values.reserve(sizeof...(Args));
        (values.push_back(toValue(std::forward<Args>(args))), ...);
        emit(level, format, std::move(values));
    }

    template <typename... Args>
    void notice(std::string_view format, Args&&... args) const { log(LogLevel::defaultLevel, format, std::forward<Args>(args)...); }
    template <typename... Args>
    void info(std::string_view format, Args&&... args) const { log(LogLevel::info, format, std::forward<Args>(args)...); }
    template <typename... Args>
    void error(std::string_view format, Args&&... args) const { log(LogLevel::error, format, std::forward<Args>(args)...); }
    template <typename... Args>
    void debug(std::string_view format, Args&&... args) const { log(LogLevel::debug, format, std::forward<Args>(args)...); }

private:
    template <typename T>
    static LogValue toValue(T&& value)
    {
        using U = std::remove_cvref_t<T>;
        if constexpr (std::is_same_v<U, bool>)
            return LogValue{static_cast<bool>(value)};
        else if constexpr (std::is_floating_point_v<U>)
            return LogValue{static_cast<double>(value)};
        else if constexpr (std::is_integral_v<U> && std::is_signed_v<U>)
            return LogValue{static_cast<std::int64_t>(value)};
        else if constexpr (std::is_integral_v<U>)
            return LogValue{static_cast<std::uint64_t>(value)};
        else if constexpr (std::is_enum_v<U>)
            return LogValue{static_cast<std::int64_t>(value)};
        else
            return LogValue{std::string(std::string_view(value))};
    }

    void emit(LogLevel level, std::string_view format, std::vector<LogValue>&& values) const;

    std::string_view category_;
};

// The shared loggers, one per category, on the subsystem "app.hushmeadows".
struct Log {
    static constexpr std::string_view subsystem = "app.hushmeadows";

    static constexpr Logger saver{"saver"};
    static constexpr Logger settings{"settings"};
    static constexpr Logger worlds{"worlds"};
    static constexpr Logger audio{"audio"};
    static constexpr Logger picture{"picture"};
    static constexpr Logger video{"video"};
    static constexpr Logger posters{"posters"};

    // Replaces the process-wide sink and returns the previous one. With no sink
    // installed, records go to standard error.
    static std::shared_ptr<LogSink> setSink(std::shared_ptr<LogSink> sink);

    // Debug switch: show private arguments in clear.
    static void setRevealsPrivate(bool reveal);
    static bool revealsPrivate();
};

// The default sink: one line per record on standard error,
// "hushmeadows[category] level: message".
class StandardErrorLogSink final : public LogSink {
public:
    void write(const LogRecord& record) override;
};

} // namespace hushmeadows
