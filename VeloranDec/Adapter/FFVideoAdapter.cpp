#include "FFVideoAdapter.h"

#include "VeloranBaseEntry.h"

namespace Veloran {

FFVideoAdapter::FFVideoAdapter(QObject *parent)
    : BasicObject(parent)
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

    mInWidth = srcW;
    mInHeight = srcH;
    mInFormat = srcFormat;
    mOutWidth = dstW;
    mOutHeight = dstH;
    mOutFormat = dstFormat;
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

    AVFramePtr out = makeAVFramePtr(av_frame_alloc());
    if (!out)
        return {};
    out->format = mOutFormat;
    out->width = mOutWidth;
    out->height = mOutHeight;
    // Without a picture buffer there is nothing to scale into; the frame goes back
    // without timestamps, like one whose scale failed.
    if (av_frame_get_buffer(out.data(), mOutFormat == AV_PIX_FMT_RGB24 ? 16 : 4) < 0)
        return out;

    const int result = sws_scale(mSwsContext.data(), frame->data, frame->linesize, 0, frame->height, out->data,
                                 out->linesize);
    if (result >= 0) {
        out->pts = frame->pts;
        out->pkt_dts = frame->pkt_dts;
        out->best_effort_timestamp = frame->pts;
        out->interlaced_frame = frame->interlaced_frame;
        out->sample_aspect_ratio = frame->sample_aspect_ratio;
    }
    return out;
}

void FFVideoAdapter::setOutFormat(AVPixelFormat format)
{
    assertOwnThread();
    mOutFormat = format;
}

} // namespace Veloran
