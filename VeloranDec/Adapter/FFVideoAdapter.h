#pragma once

#include "Common/BasicObject.h"
#include "FFmpegJointPtrs.h"
#include "VeloranDec/Adapter/FFColourDescription.h"
#include "vrfetcher_export.h"

#include <memory>

namespace Veloran {

class FFToneMapper;

/// Converts decoded video frames to one output pixel format and size with swscale.
/// A source whose size or format changes gets a new scaler at its own size.
///
/// YUV frames are read with their own matrix and range (FFColourDescription, with
/// the players' fallbacks for untagged video); RGB and palette frames are converted
/// as they are. HDR frames (PQ or HLG) going to an RGB format are scaled first, at
/// 16 bits, and then tone-mapped to SDR BT.709 (FFToneMapper), so a small output
/// costs little whatever the source size.
///
/// Used from the thread it lives in (Debug builds abort otherwise; see BasicObject).
/// Failures are logged and give false or a null frame; nothing throws.
class VRFETCHER_EXPORT FFVideoAdapter : public BasicObject
{
    Q_OBJECT
public:
    /// An adapter without scaler; adapt() passes frames through until set up or
    /// given a frame of another format than the output one.
    explicit FFVideoAdapter(QObject *parent = nullptr);
    ~FFVideoAdapter() override;

    /// The largest output width or height made: as large as decoders accept
    /// pictures, far beyond any screen.
    static constexpr int kMostOutputSide = 16384;

    /// Makes a scaler from the source to the destination; on failure logs and keeps
    /// the earlier scaler and parameters. The source size must be positive and both
    /// formats valid; the destination may not exceed kMostOutputSide on a side;
    /// swscale judges other destination sizes.
    bool setupContext(int srcW, int srcH, AVPixelFormat srcFormat, int dstW, int dstH, AVPixelFormat dstFormat);

    /// The converted frame; the input itself when no conversion is needed; empty when
    /// no scaler can be made. A null input comes back null; a frame whose buffer cannot
    /// be had, or whose scale fails, comes back without timestamps.
    AVFramePtr adapt(const AVFramePtr &frame);

    /// Stores the output format only; the scaler is not rebuilt.
    void setOutFormat(AVPixelFormat format);

    int inWidth() const { return mInWidth; }               ///< source width of the current scaler
    int inHeight() const { return mInHeight; }             ///< source height of the current scaler
    AVPixelFormat inFormat() const { return mInFormat; }   ///< source format of the current scaler
    AVPixelFormat outFormat() const { return mOutFormat; } ///< output pixel format
    int outWidth() const { return mOutWidth; }             ///< output width of the current scaler

private:
    // Makes the scaler read this colour description, with the tone mapper behind it
    // for HDR; false when either cannot be made.
    bool applyColour(const FFColourDescription &colour);
    // Allocates `out` at the output size in `format` and scales into it; false when
    // there is no buffer or the scale failed.
    bool scaleInto(const AVFrame &frame, AVFrame &out, AVPixelFormat format);

    int mInWidth = 0;
    int mInHeight = 0;
    int mOutWidth = 0;
    int mOutHeight = 0;
    AVPixelFormat mInFormat = AV_PIX_FMT_NONE;
    AVPixelFormat mOutFormat = AV_PIX_FMT_NONE;
    SwsContextPtr mSwsContext;
    FFColourDescription mColour;   // what the scaler reads, once mColourApplied
    bool mColourApplied = false;
    bool mToneMapping = false;     // the scaler feeds the tone mapper
    std::unique_ptr<FFToneMapper> mToneMapper;
};

} // namespace Veloran
