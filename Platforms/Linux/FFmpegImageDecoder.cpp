#include "Platforms/Linux/FFmpegImageDecoder.h"

#include "Platforms/Linux/FFmpegInput.h"

extern "C" {
#include <libavutil/imgutils.h>
}

namespace hushmeadows {

std::optional<Image> FFmpegImageDecoder::decode(const std::filesystem::path& file, PixelFormat format) const
{
    auto input = FFmpegInput::open(file, MediaKind::image);
    if (!input)
        return std::nullopt;
    AVStream* stream = input->bestStream(AVMEDIA_TYPE_VIDEO);
    // Judged on the header, before any pixel is decoded; and again on the
    // frame, whose size a lying header does not bind.
    auto tooLarge = [](int width, int height) { return PixelSize{width, height}.decodedBytes() > maximumDecodedImageBytes; };
    if (!stream || tooLarge(stream->codecpar->width, stream->codecpar->height))
        return std::nullopt;
    auto decoder = FFmpegInput::openDecoder(*stream);
    if (!decoder)
        return std::nullopt;
    FramePtr frame = makeFrame();
    if (input->decodeNext(**decoder, *stream, *frame) != 0 || frame->width <= 0 || frame->height <= 0 || tooLarge(frame->width, frame->height))
        return std::nullopt;

    AVPixelFormat target = format == PixelFormat::rgba8 ? AV_PIX_FMT_RGBA : AV_PIX_FMT_BGRA;
    // Point sampling: no resize happens, and it keeps conversion exact for RGB sources.
    SwsContextPtr convert(sws_getContext(frame->width, frame->height, static_cast<AVPixelFormat>(frame->format), frame->width,
                                         frame->height, target, SWS_POINT, nullptr, nullptr, nullptr));
    if (!convert)
        return std::nullopt;
    Image image = Image::blank(frame->width, frame->height, format);
    std::uint8_t* planes[4] = {image.pixels.data(), nullptr, nullptr, nullptr};
    int strides[4] = {static_cast<int>(image.bytesPerRow), 0, 0, 0};
    if (sws_scale(convert.get(), frame->data, frame->linesize, 0, frame->height, planes, strides) != frame->height)
        return std::nullopt;
    return image;
}

} // namespace hushmeadows
