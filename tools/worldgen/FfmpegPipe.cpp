#include "tools/worldgen/FfmpegPipe.h"

#include <bit>

#include <sys/wait.h>

namespace hushmeadows::worldgen {

namespace {

std::string shellQuoted(const std::string& text)
{
    std::string quoted = "'";
    for (char c : text) {
        if (c == '\'')
            quoted += "'\\''";
        else
            quoted += c;
    }
    return quoted + "'";
}

} // namespace

FfmpegPipe::FfmpegPipe(std::FILE* file, std::string description)
    : file_(file)
    , description_(std::move(description))
{
}

FfmpegPipe::FfmpegPipe(FfmpegPipe&& other) noexcept
    : file_(other.file_)
    , description_(std::move(other.description_))
{
    other.file_ = nullptr;
}

FfmpegPipe::~FfmpegPipe()
{
    if (file_)
        pclose(file_);
}

std::expected<FfmpegPipe, std::string> FfmpegPipe::start(const std::string& ffmpeg, const std::vector<std::string>& arguments,
                                                         Direction direction)
{
    std::string command = shellQuoted(ffmpeg) + " -hide_banner -loglevel error -nostats";
    for (const auto& argument : arguments)
        command += " " + shellQuoted(argument);
    std::fflush(nullptr);
    std::FILE* file = popen(command.c_str(), direction == Direction::feed ? "w" : "r");
    if (!file)
        return std::unexpected("cannot start " + ffmpeg);
    return FfmpegPipe(file, arguments.empty() ? ffmpeg : ffmpeg + " … " + arguments.back());
}

bool FfmpegPipe::write(std::span<const std::uint8_t> bytes)
{
    return std::fwrite(bytes.data(), 1, bytes.size(), file_) == bytes.size();
}

bool FfmpegPipe::write(std::span<const float> samples)
{
    static_assert(std::endian::native == std::endian::little, "samples go to ffmpeg as f32le");
    return std::fwrite(samples.data(), sizeof(float), samples.size(), file_) == samples.size();
}

std::vector<std::uint8_t> FfmpegPipe::read(std::size_t count)
{
    std::vector<std::uint8_t> bytes(count);
    bytes.resize(std::fread(bytes.data(), 1, count, file_));
    return bytes;
}

std::expected<void, std::string> FfmpegPipe::finish()
{
    int status = pclose(file_);
    file_ = nullptr;
    if (status == -1 || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return std::unexpected(description_ + " failed");
    return {};
}

} // namespace hushmeadows::worldgen
