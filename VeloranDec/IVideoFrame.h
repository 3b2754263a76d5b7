#pragma once

#include "FFmpegJointPtrs.h"
#include "vrfetcher_export.h"

#include <QList>
#include <QSharedPointer>
#include <QSize>
#include <QVariantMap>

namespace Veloran {

class NLMapNode;
using NLMapNodePtr = QSharedPointer<NLMapNode>;
struct CVideoStreamInfo;

/// A decoded picture with its time in milliseconds, the stream it came from and the
/// timeline clip it shows. A wrapper without picture marks the end of a stream.
///
/// Always held by QSharedPointer<IVideoFrame>; the picture is shared, never copied.
/// A wrapper has no locks: it may pass between threads, but only one holder may
/// change it at a time. Without picture the getters give -1, 0, null or (-1, -1).
class VRFETCHER_EXPORT IVideoFrame
{
public:
    virtual ~IVideoFrame();

    virtual int format() const = 0;                  ///< pixel format, -1 without picture
    virtual long long rawPts() const = 0;            ///< the picture's own pts, 0 without picture
    virtual long long pts() const = 0;               ///< the time set by setPts, else the picture's pts
    virtual void setPts(long long pts) = 0;          ///< a negative time means unset
    virtual QSize frameSize() const = 0;             ///< coded size, (-1, -1) without picture
    /// The picture's data of `plane` (not bound-checked); null without picture.
    virtual uint8_t *data(int plane) const = 0;
    /// The line size of `plane` in bytes; 0 without picture.
    virtual int lineSize(int plane) const = 0;
    virtual QList<QVariantMap> filters() const = 0;  ///< the clip's filters
    virtual int getRotation() const = 0;             ///< the stream's rotation in degrees
    virtual QSize displaySize() const = 0;           ///< aspect-corrected and rotated size
    virtual AVFramePtr getRawFrame() const = 0;      ///< the shared picture; null without picture
    virtual bool isInterlace() const = 0;            ///< whether the picture is interlaced
    virtual QVariantMap transformMap() const = 0;    ///< the clip's transform at this frame's time; empty without clip
    virtual bool isTrunk() const = 0;                ///< the trunk flag, set by consumers
    virtual void setTrunk(bool trunk) = 0;           ///< sets the trunk flag
    virtual int zOrder() const = 0;                  ///< layer order, 0 unless set
    virtual void setZOrder(int zOrder) = 0;          ///< sets the layer order
    virtual float alpha() const = 0;                 ///< the clip's opacity, 1 without clip
    virtual void setSeekMode(int seekMode) = 0;      ///< tags the seek mode the producer used
    virtual int seekMode() const = 0;                ///< the seek mode tag
    virtual bool isEndFakeFrame() const = 0;         ///< true for the end-of-stream marker
    virtual void setClipNode(NLMapNodePtr node) = 0; ///< the timeline clip this frame shows
    virtual NLMapNodePtr clipNode() const = 0;       ///< the clip node; null without clip
    /// A second wrapper over the same picture with the same facts and clip.
    virtual QSharedPointer<IVideoFrame> makeCopy() const = 0;
    /// The description of the stream the picture came from; null when not set.
    virtual QSharedPointer<CVideoStreamInfo> getStreamInfo() const = 0;
    /// Replaces the stream description.
    virtual void setStreamInfo(QSharedPointer<CVideoStreamInfo> info) = 0;
};

} // namespace Veloran
