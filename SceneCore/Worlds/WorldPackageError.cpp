#include "SceneCore/Worlds/WorldPackageError.h"

namespace hushmeadows {

std::string folderDisplayName(const std::filesystem::path& folder)
{
    // Also when the location ends in a separator.
    auto name = folder.filename();
    if (name.empty())
        name = folder.parent_path().filename();
    return name.string();
}

WorldPackageError WorldPackageError::notADirectory(std::filesystem::path folder)
{
    WorldPackageError error(Kind::notADirectory);
    error.folder_ = std::move(folder);
    return error;
}

WorldPackageError WorldPackageError::manifestMissing(std::filesystem::path folder)
{
    WorldPackageError error(Kind::manifestMissing);
    error.folder_ = std::move(folder);
    return error;
}

WorldPackageError WorldPackageError::manifestUnreadable(std::filesystem::path folder, std::string reason)
{
    WorldPackageError error(Kind::manifestUnreadable);
    error.folder_ = std::move(folder);
    error.reason_ = std::move(reason);
    return error;
}

WorldPackageError WorldPackageError::unsupportedFormatVersion(std::int64_t version)
{
    WorldPackageError error(Kind::unsupportedFormatVersion);
    error.formatVersion_ = version;
    return error;
}

WorldPackageError WorldPackageError::invalidValue(std::string field, std::string reason)
{
    WorldPackageError error(Kind::invalidValue);
    error.field_ = std::move(field);
    error.reason_ = std::move(reason);
    return error;
}

WorldPackageError WorldPackageError::missingResource(std::string field, std::string path)
{
    WorldPackageError error(Kind::missingResource);
    error.field_ = std::move(field);
    error.path_ = std::move(path);
    return error;
}

WorldPackageError WorldPackageError::resourceOutsidePackage(std::string field, std::string path)
{
    WorldPackageError error(Kind::resourceOutsidePackage);
    error.field_ = std::move(field);
    error.path_ = std::move(path);
    return error;
}

WorldPackageError WorldPackageError::emptyResource(std::string field, std::string path)
{
    WorldPackageError error(Kind::emptyResource);
    error.field_ = std::move(field);
    error.path_ = std::move(path);
    return error;
}

WorldPackageError WorldPackageError::undecodableResource(std::string field, std::string path, std::string reason)
{
    WorldPackageError error(Kind::undecodableResource);
    error.field_ = std::move(field);
    error.path_ = std::move(path);
    error.reason_ = std::move(reason);
    return error;
}

std::string WorldPackageError::description() const
{
    switch (kind_) {
    case Kind::notADirectory:
        return folderDisplayName(folder_) + " is not a world package directory";
    case Kind::manifestMissing:
        return "No world.json in " + folderDisplayName(folder_);
    case Kind::manifestUnreadable:
        return "world.json in " + folderDisplayName(folder_) + " is invalid: " + reason_;
    case Kind::unsupportedFormatVersion:
        return "World format version " + std::to_string(formatVersion_) + " is not supported by this version of Hushmeadows";
    case Kind::invalidValue:
        return "Invalid value for " + field_ + ": " + reason_;
    case Kind::missingResource:
        return "Missing resource for " + field_ + ": " + path_;
    case Kind::resourceOutsidePackage:
        return field_ + " (" + path_ + ") resolves outside the world package";
    case Kind::emptyResource:
        return field_ + " (" + path_ + ") is empty";
    case Kind::undecodableResource:
        return field_ + " (" + path_ + ") can't be decoded: " + reason_;
    }
    return {};
}

} // namespace hushmeadows
