#include "SceneCore/Runtime/Log.h"

#include "SceneCore/Runtime/PrintableText.h"

#include <cstdio>
#include <mutex>

namespace hushmeadows {

std::string_view name(LogLevel level)
{
    switch (level) {
    case LogLevel::debug: return "debug";
    case LogLevel::info: return "info";
    case LogLevel::defaultLevel: return "default";
    case LogLevel::error: return "error";
    case LogLevel::fault: return "fault";
    }
    return "default";
}

namespace {

// Both live as long as the process: work on a queue may still log while the
// process exits, and no destructor may pull the sink from under it.
std::mutex& sinkMutex()
{
    static auto* mutex = new std::mutex;
    return *mutex;
}

std::shared_ptr<LogSink>& installedSink()
{
    static auto* sink = new std::shared_ptr<LogSink>;
    return *sink;
}

std::atomic<bool> revealPrivateArguments{false};

std::int64_t asSigned(const LogValue& value)
{
    return std::visit([](const auto& v) -> std::int64_t {
        using T = std::decay_t<decltype(v)>;
        if constexpr (std::is_same_v<T, std::string>)
            return 0;
        else
            return static_cast<std::int64_t>(v);
    }, value);
}

std::uint64_t asUnsigned(const LogValue& value)
{
    return std::visit([](const auto& v) -> std::uint64_t {
        using T = std::decay_t<decltype(v)>;
        if constexpr (std::is_same_v<T, std::string>)
            return 0;
        else
            return static_cast<std::uint64_t>(v);
    }, value);
}

double asDouble(const LogValue& value)
{
    return std::visit([](const auto& v) -> double {
        using T = std::decay_t<decltype(v)>;
        if constexpr (std::is_same_v<T, std::string>)
            return 0;
        else
            return static_cast<double>(v);
    }, value);
}

std::string asText(const LogValue& value)
{
    return std::visit([](const auto& v) -> std::string {
        using T = std::decay_t<decltype(v)>;
        if constexpr (std::is_same_v<T, std::string>)
            return v;
        else if constexpr (std::is_same_v<T, bool>)
            return v ? "true" : "false";
        else
            return std::to_string(v);
    }, value);
}

template <typename T>
std::string printfOne(const std::string& printfFormat, T value)
{
    char buffer[128];
    int written = std::snprintf(buffer, sizeof buffer, printfFormat.c_str(), value);
    if (written < 0)
        return {};
    if (static_cast<std::size_t>(written) < sizeof buffer)
        return std::string(buffer, static_cast<std::size_t>(written));
    std::string large(static_cast<std::size_t>(written) + 1, '\0');
    std::snprintf(large.data(), large.size(), printfFormat.c_str(), value);
    large.resize(static_cast<std::size_t>(written));
    return large;
}

} // namespace

std::string renderLogFormat(std::string_view format, const std::vector<LogValue>& arguments, bool revealPrivate)
{
    std::string out;
    out.reserve(format.size() + 16 * arguments.size());
    std::size_t next = 0;
    auto take = [&]() -> const LogValue* {
        return next < arguments.size() ? &arguments[next++] : nullptr;
    };

    for (std::size_t i = 0; i < format.size(); ++i) {
        char c = format[i];
        if (c != '%') {
            out.push_back(c);
            continue;
        }
        if (i + 1 < format.size() && format[i + 1] == '%') {
            out.push_back('%');
            ++i;
            continue;
        }
        std::size_t j = i + 1;
        std::string_view annotation;
        if (j < format.size() && format[j] == '{') {
            std::size_t close = format.find('}', j);
            if (close == std::string_view::npos) {
                out.append(format.substr(i));
                break;
            }
            annotation = format.substr(j + 1, close - j - 1);
            j = close + 1;
        }
        // Flags, width and precision, kept for printf; "*" takes an argument.
        std::string printfFormat = "%";
        while (j < format.size() && std::string_view("-+ #0").find(format[j]) != std::string_view::npos)
            printfFormat.push_back(format[j++]);
        while (j < format.size() && format[j] >= '0' && format[j] <= '9')
            printfFormat.push_back(format[j++]);
        if (j < format.size() && format[j] == '.') {
            printfFormat.push_back(format[j++]);
            if (j < format.size() && format[j] == '*') {
                ++j;
                const LogValue* precision = take();
                long long digits = precision ? asSigned(*precision) : 0;
                printfFormat += std::to_string(digits < 0 ? 0 : (digits > 64 ? 64 : digits));
            } else {
                while (j < format.size() && format[j] >= '0' && format[j] <= '9')
                    printfFormat.push_back(format[j++]);
            }
        }
        // Length modifiers do not matter: every integer travels as 64 bits.
        while (j < format.size() && std::string_view("hlLqjzt").find(format[j]) != std::string_view::npos)
            ++j;
        if (j >= format.size()) {
            out.append(format.substr(i));
            break;
        }
        char conversion = format[j];
        i = j;

        const LogValue* value = take();
        if (!value) {
            out += "<missing>";
            continue;
        }

        bool isText = conversion == 's' || conversion == '@';
        bool isPrivate = annotation.find("private") != std::string_view::npos
            || (isText && annotation.find("public") == std::string_view::npos);
        if (isPrivate && !revealPrivate) {
            out += "<private>";
            continue;
        }

        if (annotation.find("bool") != std::string_view::npos) {
            out += asSigned(*value) != 0 ? "true" : "false";
            continue;
        }
        switch (conversion) {
        case 's':
        case '@':
            out += asText(*value);
            break;
        case 'd':
        case 'i':
            out += printfOne(printfFormat + "lld", static_cast<long long>(asSigned(*value)));
            break;
        case 'u':
        case 'x':
        case 'X':
        case 'o':
            out += printfOne(printfFormat + "ll" + conversion, static_cast<unsigned long long>(asUnsigned(*value)));
            break;
        case 'f':
        case 'F':
        case 'e':
        case 'E':
        case 'g':
        case 'G':
            out += printfOne(printfFormat + conversion, asDouble(*value));
            break;
        case 'c':
            out.push_back(static_cast<char>(asSigned(*value)));
            break;
        default:
            out += asText(*value);
            break;
        }
    }
    return out;
}

std::string LogRecord::render(bool revealPrivate) const
{
    return renderLogFormat(format, arguments, revealPrivate);
}

void Logger::emit(LogLevel level, std::string_view format, std::vector<LogValue>&& values) const
{
    LogRecord record{std::string(Log::subsystem), std::string(category_), level, std::string(format), std::move(values)};
    std::shared_ptr<LogSink> sink;
    {
        std::lock_guard lock(sinkMutex());
        sink = installedSink();
    }
    if (sink) {
        sink->write(record);
        return;
    }
    StandardErrorLogSink().write(record);
}

std::shared_ptr<LogSink> Log::setSink(std::shared_ptr<LogSink> sink)
{
    std::lock_guard lock(sinkMutex());
    std::swap(installedSink(), sink);
    return sink;
}

void Log::setRevealsPrivate(bool reveal) { revealPrivateArguments.store(reveal); }

bool Log::revealsPrivate() { return revealPrivateArguments.load(); }

void StandardErrorLogSink::write(const LogRecord& record)
{
    std::string line = "hushmeadows[" + record.category + "] ";
    if (record.level != LogLevel::defaultLevel) {
        line += name(record.level);
        line += ": ";
    }
    // A folder name or a text from a file must not forge a line or drive the terminal.
    line += printable(record.render(Log::revealsPrivate()));
    line.push_back('\n');
    std::fwrite(line.data(), 1, line.size(), stderr);
}

} // namespace hushmeadows
