#include "FFColourDescription.h"

extern "C" {
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

namespace Veloran {

namespace {

// From this size on an untagged picture is taken for HD video, which is BT.709.
constexpr int kHdWidth = 1280;
constexpr int kHdHeight = 720;

bool isJpegFormat(AVPixelFormat format)
{
    switch (format) {
    case AV_PIX_FMT_YUVJ411P:
    case AV_PIX_FMT_YUVJ420P:
    case AV_PIX_FMT_YUVJ422P:
    case AV_PIX_FMT_YUVJ440P:
    case AV_PIX_FMT_YUVJ444P:
        return true;
    default:
        return false;
    }
}

AVColorSpace knownMatrix(AVColorSpace tagged, int width, int height)
{
    switch (tagged) {
    case AVCOL_SPC_BT709:
    case AVCOL_SPC_FCC:
    case AVCOL_SPC_BT470BG:
    case AVCOL_SPC_SMPTE170M:
    case AVCOL_SPC_SMPTE240M:
    case AVCOL_SPC_BT2020_NCL:
        return tagged;
    case AVCOL_SPC_BT2020_CL:
        return AVCOL_SPC_BT2020_NCL; // swscale knows one set of BT.2020 coefficients
    default:
        return width >= kHdWidth || height >= kHdHeight ? AVCOL_SPC_BT709 : AVCOL_SPC_SMPTE170M;
    }
}

} // namespace

FFColourDescription::FFColourDescription(const AVFrame &frame)
{
    const auto format = AVPixelFormat(frame.format);
    const AVPixFmtDescriptor *descriptor = av_pix_fmt_desc_get(format);
    const uint64_t notYuv = AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL | AV_PIX_FMT_FLAG_HWACCEL | AV_PIX_FMT_FLAG_BAYER;
    const bool xyz = format == AV_PIX_FMT_XYZ12LE || format == AV_PIX_FMT_XYZ12BE;
    mYuv = descriptor && !(descriptor->flags & notYuv) && !xyz;
    if (!mYuv)
        return;
    const bool grey = descriptor->nb_components <= 2;
    if (frame.color_range == AVCOL_RANGE_JPEG || frame.color_range == AVCOL_RANGE_MPEG)
        mFullRange = frame.color_range == AVCOL_RANGE_JPEG;
    else
        mFullRange = grey || isJpegFormat(format);
    mMatrix = knownMatrix(frame.colorspace, frame.width, frame.height);
    mTransfer = frame.color_trc;
    mPrimaries = frame.color_primaries;
}

void FFColourDescription::applyTo(SwsContext *context, bool keepDescription) const
{
    if (!mYuv || !context)
        return;
    int *currentSourceTable = nullptr;
    int *table = nullptr;
    int currentSourceRange = 0;
    int range = 0;
    int brightness = 0;
    int contrast = 0;
    int saturation = 0;
    if (sws_getColorspaceDetails(context, &currentSourceTable, &currentSourceRange, &table, &range, &brightness, &contrast,
                                 &saturation) < 0) {
        return;
    }
    // The SWS_CS_* numbers are those of AVColorSpace. swscale refuses (and ignores the
    // matrix) when both sides are YUV; the range is taken in either case.
    const int *sourceTable = sws_getCoefficients(mMatrix);
    const int sourceRange = mFullRange ? 1 : 0;
    sws_setColorspaceDetails(context, sourceTable, sourceRange, keepDescription ? sourceTable : table,
                             keepDescription ? sourceRange : range, brightness, contrast, saturation);
}

void FFColourDescription::tag(AVFrame &frame) const
{
    frame.colorspace = mMatrix;
    frame.color_range = mFullRange ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
    frame.color_trc = mTransfer;
    frame.color_primaries = mPrimaries == AVCOL_PRI_UNSPECIFIED ? AVCOL_PRI_BT2020 : mPrimaries;
}

bool FFColourDescription::operator==(const FFColourDescription &other) const
{
    return mYuv == other.mYuv && mFullRange == other.mFullRange && mMatrix == other.mMatrix
           && mTransfer == other.mTransfer && mPrimaries == other.mPrimaries;
}

} // namespace Veloran
