#include "tests/support/FixtureKit.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace hushmeadows::testing {

namespace fs = std::filesystem;

namespace {

fs::path makeUniqueFolder(const std::string& prefix)
{
    std::string pattern = (fs::temp_directory_path() / (prefix + "-XXXXXX")).string();
    if (!::mkdtemp(pattern.data()))
        throw std::runtime_error("cannot create a temporary folder from " + pattern);
    return fs::canonical(pattern);
}

std::string readWholeFile(const fs::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
}

// Generated fixtures of this process, by file name. std::map keeps the
// returned references valid while entries are added.
class FixtureCache {
public:
    ~FixtureCache()
    {
        if (!folder_.empty()) {
            std::error_code ignored;
            fs::remove_all(folder_, ignored);
        }
    }

    template <typename Make>
    const fs::path& file(const std::string& name, Make&& make)
    {
        std::lock_guard lock(mutex_);
        if (auto found = files_.find(name); found != files_.end())
            return found->second;
        if (folder_.empty())
            folder_ = makeUniqueFolder("hushmeadows-fixtures");
        fs::path target = folder_ / name;
        // Made under a scratch name first, so a failed generation leaves
        // nothing that a later call would take for the finished file.
        fs::path scratch = folder_ / ("partial-" + name);
        make(scratch);
        fs::rename(scratch, target);
        return files_.emplace(name, target).first->second;
    }

private:
    std::mutex mutex_;
    fs::path folder_;
    std::map<std::string, fs::path> files_;
};

FixtureCache& cache()
{
    static FixtureCache instance;
    return instance;
}

std::string number(double value)
{
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%g", value);
    return text.data();
}

const std::string ffmpeg = "ffmpeg -hide_banner -loglevel error -nostdin -y ";

// PNG pieces -------------------------------------------------------------

std::uint32_t crc32(const std::uint8_t* data, std::size_t size, std::uint32_t crc = 0)
{
    static const auto table = [] {
        std::array<std::uint32_t, 256> entries{};
        for (std::uint32_t n = 0; n < 256; ++n) {
            std::uint32_t c = n;
            for (int k = 0; k < 8; ++k)
                c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            entries[n] = c;
        }
        return entries;
    }();
    crc = ~crc;
    for (std::size_t i = 0; i < size; ++i)
        crc = table[(crc ^ data[i]) & 0xFF] ^ (crc >> 8);
    return ~crc;
}

std::uint32_t adler32(const std::vector<std::uint8_t>& data)
{
    std::uint32_t a = 1, b = 0;
    for (std::uint8_t byte : data) {
        a = (a + byte) % 65521;
        b = (b + a) % 65521;
    }
    return (b << 16) | a;
}

void appendBigEndian(std::vector<std::uint8_t>& out, std::uint32_t value)
{
    for (int shift = 24; shift >= 0; shift -= 8)
        out.push_back(static_cast<std::uint8_t>(value >> shift));
}

void appendChunk(std::vector<std::uint8_t>& out, const char (&type)[5], const std::vector<std::uint8_t>& data)
{
    appendBigEndian(out, static_cast<std::uint32_t>(data.size()));
    std::size_t typeStart = out.size();
    out.insert(out.end(), type, type + 4);
    out.insert(out.end(), data.begin(), data.end());
    appendBigEndian(out, crc32(out.data() + typeStart, out.size() - typeStart));
}

// A zlib stream of uncompressed ("stored") deflate blocks: no compression
// library needed and the bytes are trivially exact.
std::vector<std::uint8_t> zlibStored(const std::vector<std::uint8_t>& raw)
{
    std::vector<std::uint8_t> out{0x78, 0x01};
    std::size_t offset = 0;
    do {
        std::size_t length = std::min<std::size_t>(raw.size() - offset, 65535);
        bool last = offset + length == raw.size();
        out.push_back(last ? 1 : 0);
        auto len = static_cast<std::uint16_t>(length);
        auto nlen = static_cast<std::uint16_t>(~len);
        out.insert(out.end(), {static_cast<std::uint8_t>(len & 0xFF), static_cast<std::uint8_t>(len >> 8),
                                  static_cast<std::uint8_t>(nlen & 0xFF), static_cast<std::uint8_t>(nlen >> 8)});
        out.insert(out.end(), raw.begin() + static_cast<std::ptrdiff_t>(offset),
            raw.begin() + static_cast<std::ptrdiff_t>(offset + length));
        offset += length;
    } while (offset < raw.size());
    appendBigEndian(out, adler32(raw));
    return out;
}

void writeBytes(const fs::path& file, const void* data, std::size_t size)
{
    if (file.has_parent_path())
        fs::create_directories(file.parent_path());
    std::ofstream stream(file, std::ios::binary | std::ios::trunc);
    stream.write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
    stream.close();
    if (!stream)
        throw std::runtime_error("cannot write " + file.string());
}

} // namespace

TempDir::TempDir()
    : path_(makeUniqueFolder("hushmeadows-test"))
{
}

TempDir::~TempDir()
{
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

void writeText(const fs::path& file, std::string_view text)
{
    writeBytes(file, text.data(), text.size());
}

void copyFile(const fs::path& from, const fs::path& to)
{
    if (to.has_parent_path())
        fs::create_directories(to.parent_path());
    fs::copy_file(from, to, fs::copy_options::overwrite_existing);
}

std::string shellQuoted(std::string_view text)
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

std::string runCommand(const std::string& shellCommand)
{
    fs::path errors = makeUniqueFolder("hushmeadows-command") / "stderr";
    struct Cleanup {
        fs::path folder;
        ~Cleanup()
        {
            std::error_code ignored;
            fs::remove_all(folder, ignored);
        }
    } cleanup{errors.parent_path()};

    std::string command = "( " + shellCommand + "\n) 2>" + shellQuoted(errors.string());
    FILE* pipe = ::popen(command.c_str(), "r");
    if (!pipe)
        throw std::runtime_error("cannot start: " + shellCommand);
    std::string output;
    std::array<char, 4096> buffer{};
    while (std::size_t count = std::fread(buffer.data(), 1, buffer.size(), pipe))
        output.append(buffer.data(), count);
    int status = ::pclose(pipe);
    if (status == -1 || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        std::string why = WIFEXITED(status) ? "exit status " + std::to_string(WEXITSTATUS(status)) : "abnormal end";
        throw std::runtime_error("command failed (" + why + "): " + shellCommand + "\n" + readWholeFile(errors));
    }
    return output;
}

const fs::path& video(const VideoSpec& wanted)
{
    if (wanted.width <= 0 || wanted.height <= 0 || wanted.fps <= 0 || !(wanted.seconds > 0))
        throw std::invalid_argument("video fixture needs a positive size, rate and length");
    long frames = std::max(1L, std::lround(wanted.seconds * wanted.fps));
    bool even = wanted.width % 2 == 0 && wanted.height % 2 == 0;

    std::string codec;
    std::string muxing;
    if (wanted.container == "webm") {
        if (wanted.exact)
            throw std::invalid_argument("exact video fixtures need an H.264 container");
        codec = "-c:v libvpx-vp9 -deadline realtime -b:v 0 -crf 40 -pix_fmt " + std::string(even ? "yuv420p" : "yuv444p");
    } else if (wanted.container == "mp4" || wanted.container == "mov" || wanted.container == "m4v" || wanted.container == "mkv") {
        codec = wanted.exact ? "-c:v libx264rgb -preset ultrafast -qp 0 -pix_fmt rgb24"
                           : "-c:v libx264 -preset ultrafast -crf 23 -pix_fmt " + std::string(even ? "yuv420p" : "yuv444p");
        if (wanted.container != "mkv")
            muxing = " -movflags +faststart";
    } else {
        throw std::invalid_argument("no video fixture for container " + wanted.container);
    }

    std::string name = "video-" + std::to_string(wanted.width) + "x" + std::to_string(wanted.height) + "-"
        + std::to_string(wanted.fps) + "fps-" + std::to_string(frames) + (wanted.exact ? "-exact." : "-lossy.") + wanted.container;
    return cache().file(name, [&](const fs::path& out) {
        runCommand(ffmpeg + "-f lavfi -i testsrc2=size=" + std::to_string(wanted.width) + "x"
            + std::to_string(wanted.height) + ":rate=" + std::to_string(wanted.fps) + " -frames:v "
            + std::to_string(frames) + " " + codec + muxing + " -f " + (wanted.container == "mkv" ? "matroska" : wanted.container == "m4v" ? "mp4" : wanted.container)
            + " " + shellQuoted(out.string()));
    });
}

Image posterImage(int width, int height, PixelFormat format)
{
    if (width <= 0 || height <= 0)
        throw std::invalid_argument("poster fixture needs a positive size");
    Image image = Image::blank(width, height, format);
    for (int y = 0; y < height; ++y) {
        std::uint8_t* pixel = image.row(y);
        for (int x = 0; x < width; ++x, pixel += 4) {
            auto red = static_cast<std::uint8_t>(width > 1 ? x * 255 / (width - 1) : 0);
            auto green = static_cast<std::uint8_t>(height > 1 ? y * 255 / (height - 1) : 0);
            auto blue = static_cast<std::uint8_t>((x + y) % 2 ? 255 : 0);
            bool rgba = format == PixelFormat::rgba8;
            pixel[0] = rgba ? red : blue;
            pixel[1] = green;
            pixel[2] = rgba ? blue : red;
            pixel[3] = 255;
        }
    }
    return image;
}

const fs::path& poster(int width, int height)
{
    Image image = posterImage(width, height);
    std::string name = "poster-" + std::to_string(width) + "x" + std::to_string(height) + ".png";
    return cache().file(name, [&](const fs::path& out) { writePNG(out, image); });
}

const fs::path& audio(const AudioSpec& wanted)
{
    if (wanted.sampleRate <= 0 || wanted.channels <= 0 || !(wanted.seconds > 0) || !(wanted.frequency > 0))
        throw std::invalid_argument("audio fixture needs a positive rate, channel count, length and frequency");
    static const std::map<std::string, std::string> codecs = {
        {"wav", "-c:a pcm_s16le"},
        {"flac", "-c:a flac"},
        {"m4a", "-c:a aac -b:a 96k"},
        {"mp3", "-c:a libmp3lame -b:a 64k"},
        {"ogg", "-c:a libvorbis"},
        {"opus", "-c:a libopus -b:a 64k"},
    };
    auto codec = codecs.find(wanted.container);
    if (codec == codecs.end())
        throw std::invalid_argument("no audio fixture for container " + wanted.container);
    long long frames = std::llround(wanted.seconds * wanted.sampleRate);

    std::string name = "audio-" + std::to_string(frames) + "frames-" + std::to_string(wanted.sampleRate) + "hz-"
        + std::to_string(wanted.channels) + "ch-" + number(wanted.frequency) + "." + wanted.container;
    return cache().file(name, [&](const fs::path& out) {
        runCommand(ffmpeg + "-f lavfi -i " + shellQuoted("sine=frequency=" + number(wanted.frequency) + ":sample_rate="
                       + std::to_string(wanted.sampleRate) + ",atrim=end_sample=" + std::to_string(frames))
            + " -ac " + std::to_string(wanted.channels) + " " + codec->second + " -f "
            + (wanted.container == "m4a" ? "ipod" : wanted.container == "opus" ? "ogg" : wanted.container) + " "
            + shellQuoted(out.string()));
    });
}

const fs::path& hugePNG()
{
    return cache().file("huge.png", [](const fs::path& out) {
        runCommand("python3 -c " + shellQuoted(R"(
import struct, sys, zlib
def chunk(k, d): return struct.pack(">I", len(d)) + k + d + struct.pack(">I", zlib.crc32(k + d))
z = zlib.compressobj(9); row = bytes(2001)
idat = b"".join(z.compress(row) for _ in range(16000)) + z.flush()
open(sys.argv[1], "wb").write(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", 16000, 16000, 1, 0, 0, 0, 0)) + chunk(b"IDAT", idat) + chunk(b"IEND", b""))
)") + " " + shellQuoted(out.string()));
    });
}

const fs::path& emptyWav()
{
    return cache().file("empty.wav", [](const fs::path& out) {
        constexpr std::uint32_t sampleRate = 48000;
        constexpr std::uint16_t channels = 2, bitsPerSample = 16;
        constexpr std::uint16_t blockAlign = channels * bitsPerSample / 8;
        std::vector<std::uint8_t> bytes;
        auto text = [&](const char* four) { bytes.insert(bytes.end(), four, four + 4); };
        auto le = [&](std::uint32_t value, int size) {
            for (int i = 0; i < size; ++i)
                bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
        };
        text("RIFF");
        le(36, 4); // everything after this field
        text("WAVE");
        text("fmt ");
        le(16, 4);
        le(1, 2); // PCM
        le(channels, 2);
        le(sampleRate, 4);
        le(sampleRate * blockAlign, 4);
        le(blockAlign, 2);
        le(bitsPerSample, 2);
        text("data");
        le(0, 4);
        writeBytes(out, bytes.data(), bytes.size());
    });
}

void writePNG(const fs::path& file, const Image& image)
{
    if (image.isEmpty())
        throw std::invalid_argument("a PNG needs at least one pixel");
    std::vector<std::uint8_t> raw;
    raw.reserve(static_cast<std::size_t>(image.height) * (1 + 4 * static_cast<std::size_t>(image.width)));
    bool bgra = image.format == PixelFormat::bgra8;
    for (int y = 0; y < image.height; ++y) {
        raw.push_back(0); // filter: none
        const std::uint8_t* pixel = image.row(y);
        for (int x = 0; x < image.width; ++x, pixel += 4)
            raw.insert(raw.end(), {pixel[bgra ? 2 : 0], pixel[1], pixel[bgra ? 0 : 2], pixel[3]});
    }

    std::vector<std::uint8_t> header;
    appendBigEndian(header, static_cast<std::uint32_t>(image.width));
    appendBigEndian(header, static_cast<std::uint32_t>(image.height));
    header.insert(header.end(), {8, 6, 0, 0, 0}); // 8 bits, RGBA, deflate, no filter set, no interlace

    std::vector<std::uint8_t> png{0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    appendChunk(png, "IHDR", header);
    appendChunk(png, "IDAT", zlibStored(raw));
    appendChunk(png, "IEND", {});
    writeBytes(file, png.data(), png.size());
}

} // namespace hushmeadows::testing
