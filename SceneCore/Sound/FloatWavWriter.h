#pragma once

#include <cstdint>
#include <expected>
#include <filesystem>
#include <fstream>
#include <string>

namespace hushmeadows {

// Writes interleaved 32-bit float PCM as a WAV file, frames appended as they
// come; finish() fills in the sizes. What decodes is exactly what was written.
class FloatWavWriter {
public:
    static std::expected<FloatWavWriter, std::string> create(const std::filesystem::path& file, int sampleRate, int channels);

    FloatWavWriter(FloatWavWriter&&) = default;
    FloatWavWriter& operator=(FloatWavWriter&&) = default;

    // `frames` frames of `channels` interleaved samples each.
    void append(const float* interleaved, std::int64_t frames);
    std::expected<void, std::string> finish();

    std::int64_t framesWritten() const { return frames_; }

private:
    FloatWavWriter(std::ofstream stream, std::filesystem::path file, int sampleRate, int channels);
    void writeHeader();

    std::ofstream stream_;
    std::filesystem::path file_;
    int sampleRate_;
    int channels_;
    std::int64_t frames_ = 0;
};

} // namespace hushmeadows
