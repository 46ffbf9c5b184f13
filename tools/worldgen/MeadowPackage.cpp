#include "tools/worldgen/MeadowPackage.h"

#include "tools/worldgen/AmbienceSynth.h"
#include "tools/worldgen/FfmpegPipe.h"
#include "tools/worldgen/MusicSynth.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <future>

namespace hushmeadows::worldgen {

namespace fs = std::filesystem;

namespace {

const char* videoName(TimeOfDay t) { return t == TimeOfDay::day ? "meadow-day.mp4" : "meadow-night.mp4"; }
const char* posterName(TimeOfDay t) { return t == TimeOfDay::day ? "meadow-day.png" : "meadow-night.png"; }
const char* ambienceName(TimeOfDay t) { return t == TimeOfDay::day ? "ambience-day.flac" : "ambience-night.flac"; }
constexpr const char* musicName = "music.flac";

const std::string videoSize = std::to_string(MeadowPackage::videoWidth) + "x" + std::to_string(MeadowPackage::videoHeight);
constexpr std::size_t frameBytes = static_cast<std::size_t>(MeadowPackage::videoWidth) * MeadowPackage::videoHeight * 3;

std::vector<std::string> rawFrameInput()
{
    return {"-f", "rawvideo", "-pix_fmt", "rgb24", "-video_size", videoSize, "-framerate", std::to_string(MeadowPackage::framesPerSecond),
            "-i", "pipe:0"};
}

nlohmann::ordered_json visual(TimeOfDay t)
{
    return {
        {"file", videoName(t)},
        {"poster", posterName(t)},
        {"pixelArt", true},
        {"scaling", "aspectFill"},
        // Between the middle of the picture and the cabin, which should stay in view.
        {"focus", {{"x", 0.56}, {"y", 0.58}}},
        {"safeArea", {{"width", 0.6}, {"height", 0.7}}},
        {"matte", "auto"},
    };
}

nlohmann::ordered_json audio(TimeOfDay t)
{
    return {
        {"music", {{"file", musicName}, {"defaultVolume", 0.5}, {"style", "classic"}}},
        {"ambience", {{"file", ambienceName(t)}, {"defaultVolume", 0.7}}},
    };
}

nlohmann::ordered_json theme(TimeOfDay t)
{
    // Wood of the cabin for frames, meadow green (by night firefly yellow) for accents.
    const bool day = t == TimeOfDay::day;
    nlohmann::ordered_json colors = {
        {"ink", day ? "#2E2A24" : "#070B1A"},
        {"background", day ? "#F4EFE2" : "#0F1839"},
        {"shade", day ? "#D9D1BD" : "#0A1028"},
        {"frameHighlight", day ? "#E9C99A" : "#6A5A52"},
        {"frameLight", day ? "#C99A66" : "#4F423C"},
        {"frameMid", day ? "#9A6B47" : "#3A2E2C"},
        {"frameDark", day ? "#6E4A31" : "#2A201F"},
        {"frameDeep", day ? "#4A2F1F" : "#1A1414"},
        {"accentGlow", day ? "#D8F0A8" : "#F4FF9E"},
        {"accentLight", day ? "#A3D26E" : "#D6EC86"},
        {"accentMid", day ? "#7DB852" : "#9DBA55"},
        {"accentDark", day ? "#5A973E" : "#6A8A3A"},
        {"accentEdge", day ? "#3E6E2A" : "#3F5A26"},
        {"accentText", day ? "#FFFDF4" : "#0B1230"},
        {"text", day ? "#3A342B" : "#E6EAF8"},
        {"textDim", day ? "#6B6254" : "#AAB4D2"},
        {"textFaint", day ? "#9C927F" : "#6F7BA0"},
        {"title", day ? "#B5523F" : "#FFD27A"},
        {"titleLight", day ? "#D9826E" : "#FFE6B0"},
    };
    return {{"style", "cabin"}, {"appearance", day ? "light" : "dark"}, {"colors", colors}};
}

double decibels(double level) { return 20 * std::log10(level); }

double meanAbsoluteDifference(const std::vector<std::uint8_t>& a, const std::vector<std::uint8_t>& b)
{
    double sum = 0;
    for (std::size_t i = 0; i < a.size() && i < b.size(); ++i)
        sum += std::abs(static_cast<int>(a[i]) - static_cast<int>(b[i]));
    return a.empty() ? 0 : sum / static_cast<double>(a.size());
}

} // namespace

MeadowPackage::MeadowPackage(GeneratorOptions options)
    : options_(std::move(options))
{
}

nlohmann::ordered_json MeadowPackage::manifest()
{
    nlohmann::ordered_json night = {
        {"visual", visual(TimeOfDay::night)},
        {"audio", audio(TimeOfDay::night)},
        {"theme", theme(TimeOfDay::night)},
        {"subtitle", "Fireflies over the sleeping meadow"},
    };
    return {
        {"formatVersion", 1},
        {"id", "meadow"},
        {"name", "Hushmeadow"},
        {"subtitle", "Wind in the grass by a cabin on the hill"},
        {"tags", {"meadow", "countryside", "calm", "pixel art"}},
        {"visual", visual(TimeOfDay::day)},
        {"audio", audio(TimeOfDay::day)},
        {"theme", theme(TimeOfDay::day)},
        {"timeOfDay", "day"},
        {"versions", {{"night", night}}},
        {"kind", "pixel"},
    };
}

std::expected<void, std::string> MeadowPackage::writeVideo(const fs::path& file, const MeadowScene& scene) const
{
    const std::string gop = std::to_string(loopFrames());
    auto arguments = rawFrameInput();
    arguments.insert(arguments.end(), {
        "-c:v", "libx264", "-preset", "slow", "-tune", "animation", "-profile:v", "high", "-pix_fmt", "yuv420p", "-crf", "18",
        // One closed GOP that starts at the loop point and no frame reordering:
        // seeking back to 0 always lands on the keyframe that starts the loop.
        "-g", gop, "-keyint_min", gop, "-sc_threshold", "0", "-bf", "0",
        "-colorspace", "smpte170m", "-color_primaries", "bt709", "-color_trc", "bt709", "-color_range", "tv",
        "-movflags", "+faststart", "-fflags", "+bitexact", "-map_metadata", "-1", "-f", "mp4", "-y", file.string(),
    });
    auto pipe = FfmpegPipe::start(options_.ffmpeg, arguments, FfmpegPipe::Direction::feed);
    if (!pipe)
        return std::unexpected(pipe.error());
    ArtCanvas canvas;
    for (int frame = 0; frame < loopFrames(); ++frame) {
        scene.render(frame, canvas);
        if (!pipe->write(canvas.upscaled(pixelScale)))
            break; // ffmpeg stopped reading; finish() says why
    }
    return pipe->finish();
}

std::expected<void, std::string> MeadowPackage::writePoster(const fs::path& file, const MeadowScene& scene) const
{
    auto arguments = rawFrameInput();
    arguments.insert(arguments.end(), {"-frames:v", "1", "-c:v", "png", "-pix_fmt", "rgb24", "-fflags", "+bitexact", "-f", "image2",
                                       "-update", "1", "-y", file.string()});
    auto pipe = FfmpegPipe::start(options_.ffmpeg, arguments, FfmpegPipe::Direction::feed);
    if (!pipe)
        return std::unexpected(pipe.error());
    ArtCanvas canvas;
    scene.render(0, canvas);
    pipe->write(canvas.upscaled(pixelScale));
    return pipe->finish();
}

std::expected<void, std::string> MeadowPackage::writeFlac(const fs::path& file, const StereoLoop& loop, int bitsPerSample) const
{
    auto pipe = FfmpegPipe::start(options_.ffmpeg,
                                  {"-f", "f32le", "-ar", std::to_string(sampleRate), "-ac", "2", "-i", "pipe:0", "-c:a", "flac", "-sample_fmt",
                                   bitsPerSample == 16 ? "s16" : "s32",
                                   "-compression_level", "8", "-fflags", "+bitexact", "-map_metadata", "-1", "-f", "flac", "-y", file.string()},
                                  FfmpegPipe::Direction::feed);
    if (!pipe)
        return std::unexpected(pipe.error());
    pipe->write(loop.interleaved());
    return pipe->finish();
}

std::expected<void, std::string> MeadowPackage::write() const
{
    std::error_code error;
    fs::create_directories(options_.out, error);
    const fs::path staging = options_.out / (std::string(folderName) + ".partial");
    fs::remove_all(staging, error);
    if (!fs::create_directories(staging, error))
        return std::unexpected("cannot create " + staging.string());

    // Five independent jobs, each making its files and feeding its own
    // ffmpeg; run side by side they keep both cores busy. popen's pipes are
    // close-on-exec, so no ffmpeg holds another's input open.
    using Job = std::future<std::expected<void, std::string>>;
    std::vector<Job> jobs;
    for (TimeOfDay t : {TimeOfDay::day, TimeOfDay::night}) {
        jobs.push_back(std::async(std::launch::async, [this, &staging, t]() -> std::expected<void, std::string> {
            const MeadowScene scene(t, loopFrames());
            if (auto done = writeVideo(staging / videoName(t), scene); !done)
                return done;
            return writePoster(staging / posterName(t), scene);
        }));
        // Wind is noise: 16 bits hold it, at two thirds of the size.
        jobs.push_back(std::async(std::launch::async, [this, &staging, t] {
            return writeFlac(staging / ambienceName(t), AmbienceSynth::render(t, ambienceFrames()), 16);
        }));
    }
    // 24 bits keep the long, quiet release tails clean.
    jobs.push_back(std::async(std::launch::async, [this, &staging] { return writeFlac(staging / musicName, MusicSynth::render(), 24); }));
    std::expected<void, std::string> outcome;
    for (auto& job : jobs) {
        auto done = job.get();
        if (!done && outcome)
            outcome = done;
    }
    if (!outcome)
        return outcome;

    {
        std::ofstream json(staging / "world.json");
        json << manifest().dump(2) << '\n';
        if (!json)
            return std::unexpected("cannot write world.json");
    }

    fs::remove_all(folder(), error);
    fs::rename(staging, folder(), error);
    if (error)
        return std::unexpected("cannot move the package into " + folder().string() + ": " + error.message());
    return {};
}

int MeadowPackage::countKeyframes(const fs::path& file) const
{
    // Decoding with every non-key frame skipped yields the keyframes alone.
    auto decoder = FfmpegPipe::start(options_.ffmpeg, {"-skip_frame", "nokey", "-i", file.string(), "-f", "rawvideo", "-pix_fmt", "rgb24", "pipe:1"},
                                     FfmpegPipe::Direction::read);
    if (!decoder)
        return -1;
    int count = 0;
    while (decoder->read(frameBytes).size() == frameBytes)
        ++count;
    return decoder->finish() ? count : -1;
}

bool MeadowPackage::checkScene(std::FILE* report, TimeOfDay t) const
{
    const int frames = loopFrames();
    const MeadowScene scene(t, frames);
    ArtCanvas first, next, middle;
    scene.render(0, first);
    scene.render(frames, next);
    scene.render(frames / 2, middle);
    bool ok = true;
    auto fail = [&](const std::string& why) {
        std::fprintf(report, "%s: FAILED: %s\n", videoName(t), why.c_str());
        ok = false;
    };
    // The frame after the last is the first again: the art has no seam.
    if (!(next == first))
        fail("frame " + std::to_string(frames) + " differs from frame 0, the loop has a seam");
    if (middle == first)
        fail("nothing moves");

    const fs::path video = folder() / videoName(t);
    auto decoder = FfmpegPipe::start(options_.ffmpeg, {"-i", video.string(), "-f", "rawvideo", "-pix_fmt", "rgb24", "pipe:1"},
                                     FfmpegPipe::Direction::read);
    if (!decoder) {
        fail(decoder.error());
        return false;
    }
    // Every decoded frame against the art it was made from, the last one and
    // the first one included, so both sides of the loop point are faithful.
    int decoded = 0;
    double worstError = 0;
    ArtCanvas canvas;
    while (true) {
        auto bytes = decoder->read(frameBytes);
        if (bytes.size() < frameBytes)
            break;
        scene.render(decoded, canvas);
        worstError = std::max(worstError, meanAbsoluteDifference(bytes, canvas.upscaled(pixelScale)));
        ++decoded;
    }
    if (auto finished = decoder->finish(); !finished)
        fail(finished.error());
    if (decoded != frames)
        fail(std::to_string(decoded) + " frames decoded, " + std::to_string(frames) + " expected");
    if (worstError > 2.5)
        fail("decoded frames stray from the art by up to " + std::to_string(worstError) + " per component");
    // A single keyframe, at the loop point: seeking back to 0 lands on it.
    if (int keyframes = countKeyframes(video); keyframes != 1)
        fail(std::to_string(keyframes) + " keyframes, 1 expected");

    auto posterDecoder = FfmpegPipe::start(options_.ffmpeg, {"-i", (folder() / posterName(t)).string(), "-f", "rawvideo", "-pix_fmt", "rgb24", "pipe:1"},
                                           FfmpegPipe::Direction::read);
    if (posterDecoder) {
        auto poster = posterDecoder->read(frameBytes + 1);
        if (!posterDecoder->finish() || poster != first.upscaled(pixelScale))
            fail(std::string(posterName(t)) + " is not exactly the first frame");
    }
    if (ok)
        std::fprintf(report, "%s: %d frames %s at %d fps, frame %d is frame 0, one keyframe, decoded within %.2f of the art; %s is frame 0\n",
                     videoName(t), decoded, videoSize.c_str(), framesPerSecond, frames, worstError, posterName(t));
    return ok;
}

bool MeadowPackage::checkSound(std::FILE* report, const std::string& name, std::int64_t expectedFrames) const
{
    auto decoder = FfmpegPipe::start(options_.ffmpeg, {"-i", (folder() / name).string(), "-f", "f32le", "-ac", "2", "pipe:1"},
                                     FfmpegPipe::Direction::read);
    if (!decoder) {
        std::fprintf(report, "%s: FAILED: %s\n", name.c_str(), decoder.error().c_str());
        return false;
    }
    auto bytes = decoder->read(static_cast<std::size_t>(expectedFrames + 1) * 2 * sizeof(float));
    std::vector<float> samples(bytes.size() / sizeof(float));
    std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(float));
    bool ok = static_cast<bool>(decoder->finish());
    const StereoLoop loop = StereoLoop::fromInterleaved(samples);
    const SeamReport seam = loop.seam();
    const double peak = loop.peak();
    ok = ok && loop.frames() == expectedFrames && seam.ratio() <= 1.0 && peak < 0.5;
    std::fprintf(report, "%s: %s%lld frames (%.3f s, %lld expected), peak %.1f dBFS, seam step %.5f (neighbouring steps up to %.5f)\n",
                 name.c_str(), ok ? "" : "FAILED: ", static_cast<long long>(loop.frames()), static_cast<double>(loop.frames()) / sampleRate,
                 static_cast<long long>(expectedFrames), decibels(peak), seam.seamStep, seam.neighbourStep);
    return ok;
}

bool MeadowPackage::selfCheck(std::FILE* report) const
{
    bool ok = true;
    for (TimeOfDay t : {TimeOfDay::day, TimeOfDay::night}) {
        ok = checkScene(report, t) && ok;
        ok = checkSound(report, ambienceName(t), ambienceFrames()) && ok;
    }
    ok = checkSound(report, musicName, MusicSynth::loopFrames()) && ok;
    return ok;
}

} // namespace hushmeadows::worldgen
