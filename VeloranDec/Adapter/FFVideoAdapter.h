#pragma once

#include "Common/BasicObject.h"
#include "FFmpegJoint.h"
#include "vrfetcher_export.h"

namespace Veloran {

// Converts decoded video frames to one output pixel format and size with swscale.
// A source whose size or format changes gets a new scaler at its own size.
class VRFETCHER_EXPORT FFVideoAdapter : public BasicObject
{
    Q_OBJECT
public:
    explicit FFVideoAdapter(QObject *parent = nullptr);
    ~FFVideoAdapter() override;

    // Makes a scaler from the source to the destination; on failure logs and keeps
    // the earlier scaler and parameters.
    bool setupContext(int srcW, int srcH, AVPixelFormat srcFormat, int dstW, int dstH, AVPixelFormat dstFormat);

    // The converted frame; the input itself when no conversion is needed; empty when
    // no scaler can be made.
    AVFramePtr adapt(const AVFramePtr &frame);

    // Stores the output format only; the scaler is not rebuilt.
    void setOutFormat(AVPixelFormat format);

    int inWidth() const { return mInWidth; }
    int inHeight() const { return mInHeight; }
    AVPixelFormat inFormat() const { return mInFormat; }
    AVPixelFormat outFormat() const { return mOutFormat; }
    int outWidth() const { return mOutWidth; }

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
