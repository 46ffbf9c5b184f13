#include "SceneCore/Sound/FloatWavWriter.h"

#include <vector>

namespace hushmeadows {

FloatWavWriter::FloatWavWriter(std::ofstream stream, std::filesystem::path file, int sampleRate, int channels)
    : stream_(std::move(stream))
    , file_(std::move(file))
    , sampleRate_(sampleRate)
    , channels_(channels)
{
}

std::expected<FloatWavWriter, std::string> FloatWavWriter::create(const std::filesystem::path& file, int sampleRate, int channels)
{
    if (sampleRate <= 0 || channels <= 0)
        return std::unexpected(std::string("a WAV needs a positive rate and channel count"));
    // The folder must exist: a folder the user did not ask for is never made.
    std::ofstream stream(file, std::ios::binary | std::ios::trunc);
    if (!stream)
        return std::unexpected("cannot write " + file.string());
    FloatWavWriter writer(std::move(stream), file, sampleRate, channels);
    writer.writeHeader();
    return writer;
}

void FloatWavWriter::writeHeader()
{
    auto dataBytes = static_cast<std::uint32_t>(frames_ * channels_ * 4);
    std::vector<char> header;
    auto text = [&](const char* four) { header.insert(header.end(), four, four + 4); };
    auto le = [&](std::uint32_t value, int size) {
        for (int i = 0; i < size; ++i)
            header.push_back(static_cast<char>((value >> (8 * i)) & 0xFF));
    };
    // A float WAV carries the 18-byte format chunk and a fact chunk.
    text("RIFF");
    le(50 + dataBytes, 4);
    text("WAVE");
    text("fmt ");
    le(18, 4);
    le(3, 2); // IEEE float
    le(static_cast<std::uint32_t>(channels_), 2);
    le(static_cast<std::uint32_t>(sampleRate_), 4);
    le(static_cast<std::uint32_t>(sampleRate_ * channels_ * 4), 4);
    le(static_cast<std::uint32_t>(channels_ * 4), 2);
    le(32, 2);
    le(0, 2); // no extension
    text("fact");
    le(4, 4);
    le(static_cast<std::uint32_t>(frames_), 4);
    text("data");
    le(dataBytes, 4);
    stream_.seekp(0);
    stream_.write(header.data(), static_cast<std::streamsize>(header.size()));
    stream_.seekp(0, std::ios::end);
}

void FloatWavWriter::append(const float* interleaved, std::int64_t frames)
{
    stream_.write(reinterpret_cast<const char*>(interleaved), static_cast<std::streamsize>(frames * channels_ * 4));
    frames_ += frames;
}

std::expected<void, std::string> FloatWavWriter::finish()
{
    writeHeader();
    stream_.flush();
    if (!stream_)
        return std::unexpected("cannot write " + file_.string());
    return {};
}

} // namespace hushmeadows
