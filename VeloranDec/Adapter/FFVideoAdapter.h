#pragma once

#include "Common/BasicObject.h"
#include "FFmpegJoint.h"
#include "vrfetcher_export.h"

namespace Veloran {

/// Converts decoded video frames to one output pixel format and size with swscale.
/// A source whose size or format changes gets a new scaler at its own size.
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
    int mInWidth = 0;
    int mInHeight = 0;
    int mOutWidth = 0;
    int mOutHeight = 0;
    AVPixelFormat mInFormat = AV_PIX_FMT_NONE;
    AVPixelFormat mOutFormat = AV_PIX_FMT_NONE;
    SwsContextPtr mSwsContext;
};

} // namespace Veloran
