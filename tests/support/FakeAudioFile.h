#pragma once

#include "SceneCore/Sound/AudioFile.h"

#include <map>
#include <memory>
#include <optional>

namespace hushmeadows::testing {

// An audio file at the port whose frame i is (i + 1, -(i + 1)) at the given
// rate, and whose reads can be made to fail or come up short at chosen positions.
class FakeAudioFile final : public AudioFile {
public:
    enum class Fault { error, shortRead };
    struct Shared {
        int reads = 0;
        std::map<std::int64_t, Fault> faults; // position → fault, used up when it strikes
        std::optional<std::int64_t> claimedLength; // what length() says, when it lies
    };

    static float left(std::int64_t frame) { return static_cast<float>(frame + 1); }
    static float right(std::int64_t frame) { return -static_cast<float>(frame + 1); }

    FakeAudioFile(std::int64_t length, double rate, std::shared_ptr<Shared> shared = std::make_shared<Shared>());

    AudioFormat processingFormat() const override { return AudioFormat{rate_, 2}; }
    std::int64_t length() const override { return shared_->claimedLength.value_or(length_); }
    std::int64_t framePosition() const override { return position_; }
    void setFramePosition(std::int64_t frame) override;
    std::expected<void, std::string> read(PCMBuffer& buffer, std::uint32_t frames) override;

private:
    std::int64_t length_;
    double rate_;
    std::int64_t position_ = 0;
    std::shared_ptr<Shared> shared_;
};

} // namespace hushmeadows::testing
