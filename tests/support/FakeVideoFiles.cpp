#include "tests/support/FakeVideoFiles.h"

#include <algorithm>
#include <iterator>

namespace hushmeadows::testing {

namespace {

class FakeVideoFile final : public VideoFile {
public:
    FakeVideoFile(FakeVideoFiles& owner, int number, int count)
        : owner_(owner), number_(number), count_(count)
    {
        owner_.mostOpen = std::max(owner_.mostOpen, ++owner_.openNow);
    }
    ~FakeVideoFile() override { --owner_.openNow; }

    double frameRate() const override { return owner_.rate; }
    double duration() const override { return count_ / owner_.rate; }
    PixelSize pixelSize() const override { return {2, 1}; }
    std::expected<std::optional<VideoFrame>, std::string> readFrame(ImagePool& pool) override
    {
        if (next_ >= count_)
            return std::nullopt;
        auto image = pool.take(2, 1, PixelFormat::bgra8);
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
    int number_;
    int count_;
    int next_ = 0;
};

} // namespace

VideoFileOpener FakeVideoFiles::opener()
{
    return [this](const std::filesystem::path& file) -> std::expected<std::unique_ptr<VideoFile>, std::string> {
        auto found = frames.find(file.filename().string());
        if (found == frames.end())
            return std::unexpected(std::string("no such file"));
        const int number = static_cast<int>(std::distance(frames.begin(), found));
        return std::make_unique<FakeVideoFile>(*this, number, found->second);
    };
}

} // namespace hushmeadows::testing
