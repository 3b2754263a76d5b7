#pragma once

#include "FFmpegJoint.h"
#include "Model/NLMapNode.h"
#include "VeloranDec/CVideoStreamInfo.h"
#include "vrfetcher_export.h"

#include <QList>
#include <QSharedPointer>
#include <QSize>
#include <QVariantMap>

namespace Veloran {

// A decoded picture with its time in milliseconds, the stream it came from and the
// timeline clip it shows. A wrapper without picture marks the end of a stream.
class VRFETCHER_EXPORT IVideoFrame
{
public:
    virtual ~IVideoFrame();

    virtual int format() const = 0;                  // pixel format, -1 without picture
    virtual long long rawPts() const = 0;            // the picture's own pts, 0 without picture
    virtual long long pts() const = 0;               // the time set by setPts, else the picture's pts
    virtual void setPts(long long pts) = 0;          // a negative time means unset
    virtual QSize frameSize() const = 0;             // coded size, (-1, -1) without picture
    virtual uint8_t *data(int plane) const = 0;
    virtual int lineSize(int plane) const = 0;
    virtual QList<QVariantMap> filters() const = 0;  // the clip's filters
    virtual int getRotation() const = 0;             // the stream's rotation in degrees
    virtual QSize displaySize() const = 0;           // aspect-corrected and rotated size
    virtual AVFramePtr getRawFrame() const = 0;
    virtual bool isInterlace() const = 0;
    virtual QVariantMap transformMap() const = 0;    // the clip's transform at this frame's time
    virtual bool isTrunk() const = 0;
    virtual void setTrunk(bool trunk) = 0;
    virtual int zOrder() const = 0;
    virtual void setZOrder(int zOrder) = 0;
    virtual float alpha() const = 0;                 // the clip's opacity, 1 without clip
    virtual void setSeekMode(int seekMode) = 0;
    virtual int seekMode() const = 0;
    virtual bool isEndFakeFrame() const = 0;         // true for the end-of-stream marker
    virtual void setClipNode(NLMapNodePtr node) = 0;
    virtual NLMapNodePtr clipNode() const = 0;
    // A second wrapper over the same picture with the same facts and clip.
    virtual QSharedPointer<IVideoFrame> makeCopy() const = 0;
    virtual QSharedPointer<CVideoStreamInfo> getStreamInfo() const = 0;
    virtual void setStreamInfo(QSharedPointer<CVideoStreamInfo> info) = 0;
};

} // namespace Veloran
