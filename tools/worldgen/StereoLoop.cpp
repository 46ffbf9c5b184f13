#include "tools/worldgen/StereoLoop.h"

#include <algorithm>
#include <cmath>

namespace hushmeadows::worldgen {

namespace {

// Steps examined on each side of the seam.
constexpr std::int64_t neighbourhood = 2048;

SeamReport seamOf(const std::vector<float>& samples)
{
    const auto n = static_cast<std::int64_t>(samples.size());
    SeamReport report;
    if (n < 2)
        return report;
    auto at = [&](std::int64_t i) { return static_cast<double>(samples[static_cast<std::size_t>(((i % n) + n) % n)]); };
    report.seamStep = std::abs(at(0) - at(n - 1));
    const std::int64_t reach = std::min(neighbourhood, n / 2 - 1);
    for (std::int64_t i = 1; i <= reach; ++i) {
        report.neighbourStep = std::max(report.neighbourStep, std::abs(at(i) - at(i - 1)));
        report.neighbourStep = std::max(report.neighbourStep, std::abs(at(n - 1 - i) - at(n - i)));
    }
    return report;
}

} // namespace

StereoLoop::StereoLoop(std::int64_t frames)
    : left_(static_cast<std::size_t>(frames))
    , right_(static_cast<std::size_t>(frames))
{
}

StereoLoop StereoLoop::fromInterleaved(const std::vector<float>& samples)
{
    StereoLoop loop(static_cast<std::int64_t>(samples.size() / 2));
    for (std::size_t i = 0; i < loop.left_.size(); ++i) {
        loop.left_[i] = samples[2 * i];
        loop.right_[i] = samples[2 * i + 1];
    }
    return loop;
}

void StereoLoop::add(std::int64_t frame, double left, double right)
{
    const auto n = frames();
    const auto i = static_cast<std::size_t>(((frame % n) + n) % n);
    left_[i] += static_cast<float>(left);
    right_[i] += static_cast<float>(right);
}

void StereoLoop::mix(const StereoLoop& other, double gain)
{
    for (std::size_t i = 0; i < left_.size() && i < other.left_.size(); ++i) {
        left_[i] += static_cast<float>(other.left_[i] * gain);
        right_[i] += static_cast<float>(other.right_[i] * gain);
    }
}

void StereoLoop::scale(double gain)
{
    for (auto& sample : left_)
        sample = static_cast<float>(sample * gain);
    for (auto& sample : right_)
        sample = static_cast<float>(sample * gain);
}

double StereoLoop::peak() const
{
    double peak = 0;
    for (float sample : left_)
        peak = std::max(peak, static_cast<double>(std::abs(sample)));
    for (float sample : right_)
        peak = std::max(peak, static_cast<double>(std::abs(sample)));
    return peak;
}

SeamReport StereoLoop::seam() const
{
    SeamReport left = seamOf(left_);
    SeamReport right = seamOf(right_);
    return left.ratio() >= right.ratio() ? left : right;
}

std::vector<float> StereoLoop::interleaved() const
{
    std::vector<float> samples(left_.size() * 2);
    for (std::size_t i = 0; i < left_.size(); ++i) {
        samples[2 * i] = left_[i];
        samples[2 * i + 1] = right_[i];
    }
    return samples;
}

} // namespace hushmeadows::worldgen
