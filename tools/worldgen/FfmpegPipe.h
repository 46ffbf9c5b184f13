#pragma once

#include <cstdint>
#include <cstdio>
#include <expected>
#include <span>
#include <string>
#include <vector>

namespace hushmeadows::worldgen {

// One run of the ffmpeg command-line tool, fed through its standard input or
// read from its standard output. A build tool may lean on the installed
// encoder; the program itself never does.
class FfmpegPipe {
public:
    enum class Direction { feed, read };

    static std::expected<FfmpegPipe, std::string> start(const std::string& ffmpeg, const std::vector<std::string>& arguments,
                                                        Direction direction);

    FfmpegPipe(FfmpegPipe&& other) noexcept;
    FfmpegPipe& operator=(FfmpegPipe&&) = delete;
    FfmpegPipe(const FfmpegPipe&) = delete;
    ~FfmpegPipe();

    bool write(std::span<const std::uint8_t> bytes);
    bool write(std::span<const float> samples);
    // Up to `count` bytes; fewer only at the end of the output.
    std::vector<std::uint8_t> read(std::size_t count);

    // Waits for ffmpeg to end; an error when it did not succeed.
    std::expected<void, std::string> finish();

private:
    FfmpegPipe(std::FILE* file, std::string description);

    std::FILE* file_ = nullptr;
    std::string description_;
};

} // namespace hushmeadows::worldgen
