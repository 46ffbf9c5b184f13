#pragma once

#include "SceneCore/Picture/VideoFile.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <string>

namespace hushmeadows::testing {

// Video files that exist only in memory, at the video-file port. Frame i of
// file number f (its place in `frames`) is a 2 × 1 BGRA picture whose first
// pixel has blue = i and green = f, shown at i / rate seconds.
class FakeVideoFiles {
public:
    // Frame counts by file name; a name missing here fails to open, and a
    // count of 0 opens (stating no duration) but yields no frame.
    std::map<std::string, int> frames;
    double rate = 48;
    // The size every file states and decodes to.
    PixelSize size{2, 1};
    // Names whose open files fail every read from now on, as a file
    // overwritten under its reader does.
    std::set<std::string> broken;
    // Names that no longer open, as deleted files; their numbers stay.
    std::set<std::string> gone;

    int openNow = 0;    // files open at this moment
    int mostOpen = 0;   // the most open at once
    int opens = 0;      // files opened so far
    int framesRead = 0; // frames decoded so far

    VideoFileOpener opener()
    {
        return [this](const std::filesystem::path& file) -> std::expected<std::unique_ptr<VideoFile>, std::string> {
            auto found = frames.find(file.filename().string());
            if (found == frames.end() || gone.contains(found->first))
                return std::unexpected(std::string("no such file"));
            ++opens;
            return std::make_unique<File>(*this, found->first, static_cast<int>(std::distance(frames.begin(), found)), found->second);
        };
    }

    // What a picture from these files shows: {file number, frame index}.
    static std::pair<int, int> identify(const Image& image) { return {image.pixels[1], image.pixels[0]}; }

private:
    class File final : public VideoFile {
    public:
        File(FakeVideoFiles& owner, std::string name, int number, int count)
            : owner_(owner), name_(std::move(name)), number_(number), count_(count)
        {
            owner_.mostOpen = std::max(owner_.mostOpen, ++owner_.openNow);
        }
        ~File() override { --owner_.openNow; }

        double frameRate() const override { return owner_.rate; }
        double duration() const override { return count_ / owner_.rate; }
        PixelSize pixelSize() const override { return owner_.size; }
        std::expected<std::optional<VideoFrame>, std::string> readFrame(ImagePool& pool) override
        {
            if (owner_.broken.contains(name_))
                return std::unexpected(std::string("invalid data found"));
            if (next_ >= count_)
                return std::nullopt;
            ++owner_.framesRead;
            auto image = pool.take(owner_.size.width, owner_.size.height, PixelFormat::bgra8);
            image->pixels[0] = static_cast<std::uint8_t>(next_);
            image->pixels[1] = static_cast<std::uint8_t>(number_);
            return VideoFrame{image, next_++ / owner_.rate};
        }
        std::expected<void, std::string> rewind() override
        {
            next_ = 0;
            return {};
        }

    private:
        FakeVideoFiles& owner_;
        std::string name_;
        int number_;
        int count_;
        int next_ = 0;
    };
};

} // namespace hushmeadows::testing
