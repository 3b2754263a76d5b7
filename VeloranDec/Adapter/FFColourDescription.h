#pragma once

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixfmt.h>
}

struct SwsContext;

namespace Veloran {

/// How the values of a decoded picture are to be read: its YUV matrix, range and
/// transfer, as the frame is tagged, with the fallbacks players use for what is not.
///
/// - Matrix: BT.601, BT.709, BT.2020 (constant or non-constant luminance, both read
///   with the BT.2020 coefficients), SMPTE 240M and FCC as tagged. Untagged YUV
///   pictures of HD size (width >= 1280 or height >= 720) are read as BT.709, smaller
///   ones as BT.601, as video players do.
/// - Range: full or limited as tagged; untagged pictures full for the deprecated
///   yuvj* formats and grey pictures, limited otherwise (swscale's own default).
/// - RGB, palette, XYZ and other non-YUV pictures have no matrix or range to apply.
/// - A PQ (SMPTE 2084) or HLG (ARIB STD-B67) transfer marks an HDR picture, which needs
///   tone mapping to look right on an SDR display.
class FFColourDescription
{
public:
    /// Describes nothing: not YUV, not HDR.
    FFColourDescription() = default;
    explicit FFColourDescription(const AVFrame &frame);

    /// True for YUV and grey pictures, whose matrix and range matter.
    bool isYuv() const { return mYuv; }
    /// True for a YUV picture with a PQ or HLG transfer.
    bool isHdr() const { return mYuv && (mTransfer == AVCOL_TRC_SMPTE2084 || mTransfer == AVCOL_TRC_ARIB_STD_B67); }
    AVColorSpace matrix() const { return mMatrix; }
    bool isFullRange() const { return mFullRange; }

    /// Makes `context` read its source with this matrix and range; the destination
    /// keeps its own unless `keepDescription` asks for the same on both sides (YUV to
    /// YUV, scaling only). Nothing happens for pictures that are not YUV.
    void applyTo(SwsContext *context, bool keepDescription = false) const;
    /// Writes the matrix, range, transfer and primaries (BT.2020 when untagged) on a
    /// frame that holds this picture in another YUV format, for filters that read them.
    void tag(AVFrame &frame) const;

    bool operator==(const FFColourDescription &other) const;
    bool operator!=(const FFColourDescription &other) const { return !(*this == other); }

private:
    bool mYuv = false;
    bool mFullRange = false;
    AVColorSpace mMatrix = AVCOL_SPC_UNSPECIFIED;
    AVColorTransferCharacteristic mTransfer = AVCOL_TRC_UNSPECIFIED;
    AVColorPrimaries mPrimaries = AVCOL_PRI_UNSPECIFIED;
};

} // namespace Veloran
