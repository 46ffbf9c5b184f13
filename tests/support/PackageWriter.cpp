#include "tests/support/PackageWriter.h"

#include "tests/support/FixtureKit.h"

namespace hushmeadows::testing {

nlohmann::json PackageWriter::minimalManifest(const std::string& id)
{
    return {{"formatVersion", 1}, {"id", id}, {"name", "World " + id}, {"visual", {{"file", "loop.mp4"}}}};
}

std::filesystem::path PackageWriter::write(const std::filesystem::path& parent, const std::string& folderName,
                                           const nlohmann::json& manifest, const Media& media)
{
    auto folder = parent / folderName;
    std::filesystem::create_directories(folder);
    writeText(folder / "world.json", manifest.dump(2));
    for (const auto& [name, source] : media)
        copyFile(source, folder / name);
    return folder;
}

std::filesystem::path PackageWriter::writeValid(const std::filesystem::path& parent, const std::string& folderName, const std::string& id)
{
    return write(parent, folderName, minimalManifest(id), {{"loop.mp4", video()}});
}

} // namespace hushmeadows::testing
