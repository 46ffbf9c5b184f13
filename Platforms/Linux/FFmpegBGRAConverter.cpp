#include "Platforms/Linux/FFmpegBGRAConverter.h"

namespace hushmeadows {

namespace {

SwsContextPtr makeContext(int width, int height, AVPixelFormat format)
{
    if (width <= 0 || height <= 0 || format == AV_PIX_FMT_NONE || !sws_isSupportedInput(format))
        return nullptr;
    // No resize happens, so the filter only shapes chroma upsampling; the
    // default (bicubic) costs a fraction of the "accurate" flags.
    return SwsContextPtr(sws_getContext(width, height, format, width, height, AV_PIX_FMT_BGRA, SWS_BICUBIC, nullptr, nullptr, nullptr));
}

} // namespace

bool FFmpegBGRAConverter::accepts(int width, int height, AVPixelFormat format)
{
    return makeContext(width, height, format) != nullptr;
}

bool FFmpegBGRAConverter::convert(const AVFrame& frame, Image& into)
{
    const auto format = static_cast<AVPixelFormat>(frame.format);
    if (into.format != PixelFormat::bgra8 || into.width != frame.width || into.height != frame.height)
        return false;
    if (!context_ || frame.width != width_ || frame.height != height_ || format != format_) {
        context_ = makeContext(frame.width, frame.height, format);
        width_ = frame.width;
        height_ = frame.height;
        format_ = format;
    }
    if (!context_)
        return false;
    std::uint8_t* planes[4] = {into.pixels.data(), nullptr, nullptr, nullptr};
    int strides[4] = {static_cast<int>(into.bytesPerRow), 0, 0, 0};
    return sws_scale(context_.get(), frame.data, frame.linesize, 0, frame.height, planes, strides) == frame.height;
}

} // namespace hushmeadows
