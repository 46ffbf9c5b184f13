#include "Platforms/Linux/FFmpegAudioFile.h"
#include "tests/support/FixtureKit.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <numbers>

namespace hushmeadows {
namespace {

namespace fs = std::filesystem;
namespace kit = hushmeadows::testing;

const std::string ffmpeg = "ffmpeg -hide_banner -loglevel error -nostdin -y ";

// A 16-bit PCM WAV holding exactly these interleaved samples.
void writeWav(const fs::path& file, int sampleRate, int channels, const std::vector<std::int16_t>& samples)
{
    std::vector<std::uint8_t> bytes;
    auto text = [&](const char* four) { bytes.insert(bytes.end(), four, four + 4); };
    auto le = [&](std::uint32_t value, int size) {
        for (int i = 0; i < size; ++i)
            bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
    };
    auto dataSize = static_cast<std::uint32_t>(samples.size() * 2);
    text("RIFF");
    le(36 + dataSize, 4);
    text("WAVE");
    text("fmt ");
    le(16, 4);
    le(1, 2); // PCM
    le(static_cast<std::uint32_t>(channels), 2);
    le(static_cast<std::uint32_t>(sampleRate), 4);
    le(static_cast<std::uint32_t>(sampleRate * channels * 2), 4);
    le(static_cast<std::uint32_t>(channels * 2), 2);
    le(16, 2);
    text("data");
    le(dataSize, 4);
    for (std::int16_t sample : samples)
        le(static_cast<std::uint16_t>(sample), 2);
    std::ofstream(file, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

std::unique_ptr<AudioFile> openOrFail(const fs::path& file, double rate = 48000)
{
    auto opened = FFmpegAudioFile::open(file, rate);
    if (!opened) {
        ADD_FAILURE() << file << ": " << opened.error();
        return nullptr;
    }
    return std::move(*opened);
}

// Planes of frames read from the file's current position on.
struct Frames {
    std::vector<std::vector<float>> channels;
    std::size_t size() const { return channels.empty() ? 0 : channels[0].size(); }
};

// Reads up to `count` frames in reads of `chunk` frames, until the file ends.
Frames readFrames(AudioFile& file, std::int64_t count, std::uint32_t chunk = 1000)
{
    Frames frames;
    AudioFormat format = file.processingFormat();
    frames.channels.resize(static_cast<std::size_t>(format.channelCount));
    PCMBuffer buffer(format, chunk);
    while (count > 0) {
        auto read = file.read(buffer, static_cast<std::uint32_t>(std::min<std::int64_t>(count, chunk)));
        if (!read) {
            ADD_FAILURE() << "read failed at " << file.framePosition() << ": " << read.error();
            break;
        }
        if (buffer.frameLength() == 0)
            break;
        for (int c = 0; c < format.channelCount; ++c)
            frames.channels[static_cast<std::size_t>(c)].insert(frames.channels[static_cast<std::size_t>(c)].end(), buffer.channelData(c),
                                                                buffer.channelData(c) + buffer.frameLength());
        count -= buffer.frameLength();
    }
    return frames;
}

// The samples ffmpeg's own command line decodes, as float planes.
Frames decodeWithCommandLine(const fs::path& file, int channels)
{
    std::string raw = kit::runCommand(ffmpeg + "-i " + kit::shellQuoted(file.string()) + " -f f32le -acodec pcm_f32le -");
    Frames frames;
    frames.channels.resize(static_cast<std::size_t>(channels));
    std::size_t count = raw.size() / sizeof(float) / static_cast<std::size_t>(channels);
    for (std::size_t i = 0; i < count; ++i)
        for (int c = 0; c < channels; ++c) {
            float value;
            std::memcpy(&value, raw.data() + (i * static_cast<std::size_t>(channels) + static_cast<std::size_t>(c)) * sizeof(float), sizeof value);
            frames.channels[static_cast<std::size_t>(c)].push_back(value);
        }
    return frames;
}

// Every seek lands exactly where reading straight through gets to.
void expectSeeksMatchReadThrough(const fs::path& path, double rate = 48000)
{
    auto file = openOrFail(path, rate);
    ASSERT_TRUE(file);
    std::int64_t length = file->length();
    Frames all = readFrames(*file, length + 10'000, 1000);
    ASSERT_EQ(static_cast<std::int64_t>(all.size()), length) << path << ": reading through gives exactly the length";
    std::vector<std::int64_t> starts = {77'777, 0, length - 1, 1024, 4800, 1, length / 2, 1023, 2047, length - 3000, 48'000, 5};
    for (std::int64_t start : starts) {
        if (start < 0 || start >= length)
            continue;
        file->setFramePosition(start);
        EXPECT_EQ(file->framePosition(), start);
        Frames part = readFrames(*file, 3000, 700);
        std::size_t expected = static_cast<std::size_t>(std::min<std::int64_t>(3000, length - start));
        ASSERT_EQ(part.size(), expected) << path << " from " << start;
        for (std::size_t c = 0; c < part.channels.size(); ++c)
            for (std::size_t i = 0; i < expected; ++i)
                ASSERT_EQ(part.channels[c][i], all.channels[c][static_cast<std::size_t>(start) + i])
                    << path.filename() << " from frame " << start << ", frame " << i << ", channel " << c;
    }
}

TEST(FFmpegAudioFile, WavAndFlacGiveExactlyTheWrittenSamples)
{
    kit::TempDir dir;
    constexpr int frames = 10'007;
    std::vector<std::int16_t> samples;
    for (int i = 0; i < frames; ++i) {
        samples.push_back(static_cast<std::int16_t>((i * 7919) % 65'536 - 32'768));
        samples.push_back(static_cast<std::int16_t>(32'767 - (i * 31) % 65'535));
    }
    writeWav(dir / "known.wav", 48000, 2, samples);
    kit::runCommand(ffmpeg + "-i " + kit::shellQuoted((dir / "known.wav").string()) + " -c:a flac "
                    + kit::shellQuoted((dir / "known.flac").string()));

    for (const char* name : {"known.wav", "known.flac"}) {
        SCOPED_TRACE(name);
        auto file = openOrFail(dir / name);
        ASSERT_TRUE(file);
        EXPECT_EQ(file->processingFormat(), (AudioFormat{48000, 2}));
        EXPECT_EQ(file->length(), frames);
        Frames read = readFrames(*file, frames + 100, 4096);
        ASSERT_EQ(read.size(), static_cast<std::size_t>(frames));
        for (std::size_t i = 0; i < read.size(); ++i) {
            ASSERT_EQ(read.channels[0][i], samples[2 * i] / 32768.0f) << "frame " << i;
            ASSERT_EQ(read.channels[1][i], samples[2 * i + 1] / 32768.0f) << "frame " << i;
        }
        EXPECT_EQ(file->framePosition(), frames);
    }

    // Mono stays mono.
    std::vector<std::int16_t> mono{1, -2, 3, -4, 32'767, -32'768};
    writeWav(dir / "mono.wav", 22'050, 1, mono);
    auto file = openOrFail(dir / "mono.wav", 22'050);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->processingFormat(), (AudioFormat{22'050, 1}));
    Frames read = readFrames(*file, 10);
    ASSERT_EQ(read.size(), mono.size());
    EXPECT_EQ(read.channels[0][4], 32'767 / 32768.0f);
    EXPECT_EQ(read.channels[0][5], -1.0f);
}

TEST(FFmpegAudioFile, ReadingFromAnyFrameEqualsReadingThroughInEveryContainer)
{
    for (const char* container : {"wav", "flac", "m4a", "mp3", "ogg", "opus"}) {
        SCOPED_TRACE(container);
        expectSeeksMatchReadThrough(kit::audio({.seconds = 2.5, .container = container}));
    }
    // Vorbis loses the last 128 frames of a short stream; the stated length
    // still holds, the end filled with silence.
    const fs::path& shortVorbis = kit::audio({.seconds = 0.5, .container = "ogg"});
    expectSeeksMatchReadThrough(shortVorbis);
    auto file = openOrFail(shortVorbis);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->length(), 24'000);
    file->setFramePosition(23'000);
    Frames end = readFrames(*file, 2000);
    ASSERT_EQ(end.size(), 1000u);
    EXPECT_NE(end.channels[0][0], 0.0f);
    EXPECT_EQ(end.channels[0][999], 0.0f);
}

TEST(FFmpegAudioFile, AACHasItsTrueLengthAndTheDecodersSamples)
{
    const fs::path& path = kit::audio({.seconds = 1.3, .container = "m4a", .frequency = 330});
    auto file = openOrFail(path);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->length(), 62'400) << "priming and padding are not part of the sound";
    Frames read = readFrames(*file, 100'000, 4096);
    ASSERT_EQ(read.size(), 62'400u);
    // The same samples the command-line decoder gives, which only adds the padding.
    Frames reference = decodeWithCommandLine(path, 2);
    ASSERT_GE(reference.size(), read.size());
    for (std::size_t c = 0; c < 2; ++c)
        for (std::size_t i = 0; i < read.size(); ++i)
            ASSERT_EQ(read.channels[c][i], reference.channels[c][i]) << "frame " << i;
    // The sound runs to the very end: the last frames are not padding's silence.
    float tail = 0;
    for (std::size_t i = read.size() - 64; i < read.size(); ++i)
        tail = std::max(tail, std::fabs(read.channels[0][i]));
    EXPECT_GT(tail, 0.05f);
}

TEST(FFmpegAudioFile, ResamplingKeepsTimeAndSeeksConsistently)
{
    const fs::path& path = kit::audio({.seconds = 1.5, .sampleRate = 44'100, .channels = 1, .container = "flac"});
    auto file = openOrFail(path, 48'000);
    ASSERT_TRUE(file);
    auto& ffmpegFile = static_cast<FFmpegAudioFile&>(*file);
    EXPECT_EQ(ffmpegFile.fileSampleRate(), 44'100);
    EXPECT_EQ(ffmpegFile.fileLength(), 66'150);
    EXPECT_EQ(file->processingFormat(), (AudioFormat{48'000, 1}));
    EXPECT_EQ(file->length(), 72'000);

    // The 440 Hz tone (amplitude 1/8, phase 0 at frame 0) lands where it
    // belongs at 48 kHz: an offset of one frame would be off by 0.007.
    Frames read = readFrames(*file, 72'000);
    ASSERT_EQ(read.size(), 72'000u);
    double worst = 0;
    for (std::size_t i = 1000; i < 71'000; ++i) {
        double ideal = 0.125 * std::sin(2 * std::numbers::pi * 440 * static_cast<double>(i) / 48'000);
        worst = std::max(worst, std::fabs(read.channels[0][i] - ideal));
    }
    EXPECT_LT(worst, 1e-3);

    expectSeeksMatchReadThrough(path, 48'000);
    expectSeeksMatchReadThrough(kit::audio({.seconds = 2, .sampleRate = 44'100, .container = "flac"}), 48'000);
    expectSeeksMatchReadThrough(kit::audio({.seconds = 2, .sampleRate = 44'100, .container = "mp3"}), 48'000);
    // Downsampling too.
    expectSeeksMatchReadThrough(kit::audio({.seconds = 2, .sampleRate = 48'000, .container = "wav"}), 44'100);
}

TEST(FFmpegAudioFile, ReadingOnAndLoopingBackDoNotDecodeFromTheStartAgain)
{
    const fs::path& path = kit::audio({.seconds = 3, .container = "flac"});
    auto opened = FFmpegAudioFile::open(path, 48'000);
    ASSERT_TRUE(opened);
    auto& file = static_cast<FFmpegAudioFile&>(**opened);
    PCMBuffer buffer(file.processingFormat(), 48'000);
    int passes = file.passesOpened();
    for (std::int64_t at = 0; at < file.length(); at += 48'000) {
        file.setFramePosition(at); // as a streamer does before every read
        ASSERT_TRUE(file.read(buffer));
    }
    EXPECT_EQ(file.passesOpened(), passes) << "reading on needs no new pass";
    file.setFramePosition(0);
    ASSERT_TRUE(file.read(buffer));
    EXPECT_EQ(file.passesOpened(), passes + 1) << "looping back opens one pass";
    file.setFramePosition(100'000);
    ASSERT_TRUE(file.read(buffer, 10));
    EXPECT_EQ(file.passesOpened(), passes + 2) << "FLAC seeks straight to a far frame";
    EXPECT_EQ(file.framePosition(), 100'010);
}

TEST(FFmpegAudioFile, MoreThanTwoChannelsAreMixedDownToStereo)
{
    const fs::path& path = kit::audio({.seconds = 0.5, .channels = 6, .container = "flac"});
    auto file = openOrFail(path);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->processingFormat(), (AudioFormat{48'000, 2}));
    EXPECT_EQ(file->length(), 24'000);
    Frames read = readFrames(*file, 24'000);
    ASSERT_EQ(read.size(), 24'000u);
    float peak = 0;
    for (float sample : read.channels[1])
        peak = std::max(peak, std::fabs(sample));
    EXPECT_GT(peak, 0.05f);
    EXPECT_LE(peak, 1.0f);
}

TEST(FFmpegAudioFile, FailuresAreReadableTexts)
{
    kit::TempDir dir;
    kit::writeText(dir / "notes.m4a", "these are not sounds");
    auto result = FFmpegAudioFile::open(dir / "notes.m4a", 48'000);
    ASSERT_FALSE(result);
    EXPECT_NE(result.error().find("not a readable media file"), std::string::npos) << result.error();

    result = FFmpegAudioFile::open(dir / "missing.flac", 48'000);
    ASSERT_FALSE(result);
    EXPECT_NE(result.error().find("cannot open the file"), std::string::npos) << result.error();

    result = FFmpegAudioFile::open(kit::video(), 48'000);
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error(), "the file holds no audio track");

    result = FFmpegAudioFile::open(kit::audio(), 0);
    ASSERT_FALSE(result);

    // A file that loses its end after opening reads short, then fails cleanly.
    kit::copyFile(kit::audio({.seconds = 2, .container = "wav"}), dir / "cut.wav");
    auto file = openOrFail(dir / "cut.wav");
    ASSERT_TRUE(file);
    fs::resize_file(dir / "cut.wav", fs::file_size(dir / "cut.wav") / 2);
    file->setFramePosition(90'000);
    PCMBuffer buffer(file->processingFormat(), 1000);
    auto read = file->read(buffer);
    EXPECT_TRUE(!read || buffer.frameLength() < 1000) << "the second half is gone";
}

} // namespace
} // namespace hushmeadows
