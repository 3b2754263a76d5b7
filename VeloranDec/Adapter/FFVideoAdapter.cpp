#include "FFVideoAdapter.h"

#include "FFmpegJoint.h"
#include "VeloranBaseEntry.h"
#include "VeloranDec/Adapter/FFToneMapper.h"

#include <tuple>

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace Veloran {

namespace {

bool isRgb(AVPixelFormat format)
{
    const AVPixFmtDescriptor *descriptor = av_pix_fmt_desc_get(format);
    return descriptor && (descriptor->flags & AV_PIX_FMT_FLAG_RGB);
}

} // namespace

FFVideoAdapter::FFVideoAdapter(QObject *parent)
    : BasicObject(parent)
    , mToneMapper(std::make_unique<FFToneMapper>())
{
}

FFVideoAdapter::~FFVideoAdapter() = default;

bool FFVideoAdapter::setupContext(int srcW, int srcH, AVPixelFormat srcFormat, int dstW, int dstH,
                                  AVPixelFormat dstFormat)
{
    assertOwnThread();
    // The destination size is left to swscale, which refuses sizes it cannot make.
    if (srcW < 1 || srcH < 1 || srcFormat < 0 || dstFormat < 0) {
        VR_LOG << "FFVideoAdapter error param: " << srcW << "," << srcH << "," << int(srcFormat) << ","
               << int(dstFormat);
        return false;
    }
    if (dstW > kMostOutputSide || dstH > kMostOutputSide) {
        VR_LOG << "FFVideoAdapter output too large: " << dstW << "x" << dstH;
        return false;
    }

    SwsContextPtr context = makeSwsContextPtr(
        sws_getContext(srcW, srcH, srcFormat, dstW, dstH, dstFormat, SWS_BILINEAR, nullptr, nullptr, nullptr));
    if (!context) {
        VR_LOG << "create sws_getContext failed";
        return false;
    }
    // The colour of the frames is applied when the first of them comes.
    mColourApplied = false;
    mToneMapping = false;
    mToneMapper->reset();

    std::tie(mInWidth, mInHeight, mInFormat) = std::make_tuple(srcW, srcH, srcFormat);
    std::tie(mOutWidth, mOutHeight, mOutFormat) = std::make_tuple(dstW, dstH, dstFormat);
    mSwsContext = context;
    return true;
}

AVFramePtr FFVideoAdapter::adapt(const AVFramePtr &frame)
{
    assertOwnThread();
    if (!frame)
        return frame;

    // Never set up: frames already in the output format need no work at all.
    const bool neverSetUp = mInWidth == 0 && mInHeight == 0 && mOutWidth == 0 && mOutHeight == 0;
    if (frame->format == mOutFormat && neverSetUp)
        return frame;

    if (frame->width != mInWidth || frame->height != mInHeight || frame->format != mInFormat)
        mSwsContext.reset();

    // A changed source gets a scaler at its own size rather than the earlier output
    // size, so the caller sees the new picture size and can decide what to do with it.
    if (!mSwsContext
        && !setupContext(frame->width, frame->height, AVPixelFormat(frame->format), frame->width, frame->height,
                         mOutFormat)) {
        return {};
    }

    const FFColourDescription colour(*frame);
    if ((!mColourApplied || colour != mColour) && !applyColour(colour))
        return {};

    AVFramePtr out = makeAVFramePtr(av_frame_alloc());
    if (!out)
        return {};
    // Without a picture buffer there is nothing to scale into; the frame goes back
    // without timestamps, like one whose scale failed.
    const bool scaled = scaleInto(*frame, *out, mToneMapping ? FFToneMapper::inputFormat() : mOutFormat);
    if (scaled && mToneMapping) {
        av_frame_copy_props(out.data(), frame.data()); // light level metadata inform the tone curve
        mColour.tag(*out);
        out = mToneMapper->map(out);
        if (!out) {
            mColourApplied = false; // made anew for the next frame
            return {};
        }
    }
    if (scaled) {
        out->pts = frame->pts;
        out->pkt_dts = frame->pkt_dts;
        out->best_effort_timestamp = frame->pts;
        out->interlaced_frame = frame->interlaced_frame;
        out->sample_aspect_ratio = frame->sample_aspect_ratio;
    }
    return out;
}

bool FFVideoAdapter::scaleInto(const AVFrame &frame, AVFrame &out, AVPixelFormat format)
{
    out.format = format;
    out.width = mOutWidth;
    out.height = mOutHeight;
    if (av_frame_get_buffer(&out, format == AV_PIX_FMT_RGB24 ? 16 : 4) < 0)
        return false;
    return sws_scale(mSwsContext.data(), frame.data, frame.linesize, 0, frame.height, out.data, out.linesize) >= 0;
}

bool FFVideoAdapter::applyColour(const FFColourDescription &colour)
{
    const bool toneMapping = colour.isHdr() && isRgb(mOutFormat);
    if (toneMapping != mToneMapping) {
        // HDR pictures are scaled to 16-bit YUV for the tone mapper, others straight
        // to the output format. Without a scaler the next frame sets up a new one.
        mSwsContext = makeSwsContextPtr(sws_getContext(mInWidth, mInHeight, mInFormat, mOutWidth, mOutHeight,
                                                       toneMapping ? FFToneMapper::inputFormat() : mOutFormat,
                                                       SWS_BILINEAR, nullptr, nullptr, nullptr));
        mToneMapping = toneMapping;
    }
    mToneMapper->reset();
    if (!mSwsContext || (toneMapping && !mToneMapper->setup(mOutWidth, mOutHeight, mOutFormat)))
        return false;
    colour.applyTo(mSwsContext.data(), toneMapping);
    mColour = colour;
    mColourApplied = true;
    return true;
}

void FFVideoAdapter::setOutFormat(AVPixelFormat format)
{
    assertOwnThread();
    mOutFormat = format;
}

} // namespace Veloran
