#pragma once

#include "tools/worldgen/MeadowScene.h"
#include "tools/worldgen/StereoLoop.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <expected>
#include <filesystem>
#include <string>

namespace hushmeadows::worldgen {

struct GeneratorOptions {
    std::filesystem::path out;
    std::string ffmpeg = "ffmpeg";
    int videoSeconds = 12;
    int ambienceSeconds = 24;
};

// The bundled world "meadow": a day and a night video with posters, music,
// two ambiences and world.json, written as one package folder.
class MeadowPackage {
public:
    static constexpr const char* folderName = "meadow.hushmeadow";
    static constexpr int framesPerSecond = 12;
    static constexpr int pixelScale = 2;
    static constexpr int videoWidth = ArtCanvas::width * pixelScale;
    static constexpr int videoHeight = ArtCanvas::height * pixelScale;

    explicit MeadowPackage(GeneratorOptions options);

    int loopFrames() const { return options_.videoSeconds * framesPerSecond; }
    std::int64_t ambienceFrames() const { return static_cast<std::int64_t>(options_.ambienceSeconds) * sampleRate; }
    std::filesystem::path folder() const { return options_.out / folderName; }

    static nlohmann::ordered_json manifest();

    // Renders everything into a fresh folder, then puts it in place whole.
    std::expected<void, std::string> write() const;

    // Reads the written package back through ffmpeg and checks what a viewer
    // would notice: loop lengths, seams, levels, picture fidelity. One line per
    // file on `report`; false when anything failed.
    bool selfCheck(std::FILE* report) const;

private:
    std::expected<void, std::string> writeVideo(const std::filesystem::path& file, const MeadowScene& scene) const;
    std::expected<void, std::string> writePoster(const std::filesystem::path& file, const MeadowScene& scene) const;
    std::expected<void, std::string> writeFlac(const std::filesystem::path& file, const StereoLoop& loop, int bitsPerSample) const;
    bool checkScene(std::FILE* report, TimeOfDay timeOfDay) const;
    int countKeyframes(const std::filesystem::path& file) const;
    bool checkSound(std::FILE* report, const std::string& name, std::int64_t expectedFrames) const;

    GeneratorOptions options_;
};

} // namespace hushmeadows::worldgen
