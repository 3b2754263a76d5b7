#pragma once

#include "VeloranDec/FrameWrapper.h"
#include "VeloranDec/IVideoFrame.h"
#include "vrfetcher_export.h"

#include <memory>

namespace Veloran {

class JSVideoClip;

/// The video frame wrapper: shares the decoded picture, never copies it. It owns the
/// view of its clip; copies made by makeCopy() share the clip node, not the view.
class VRFETCHER_EXPORT VideoFrame : public FrameWrapper<IVideoFrame>
{
public:
    /// Wraps `frame` (null for the end-of-stream marker) with time unset, no stream
    /// description and no clip.
    VideoFrame(AVFramePtr frame, int seekMode);
    ~VideoFrame() override;

    VideoFrame(const VideoFrame &) = delete;
    VideoFrame &operator=(const VideoFrame &) = delete;

    QSize frameSize() const override;
    int lineSize(int plane) const override;
    QList<QVariantMap> filters() const override;
    int getRotation() const override;
    QSize displaySize() const override;
    AVFramePtr getRawFrame() const override;
    bool isInterlace() const override;
    QVariantMap transformMap() const override;
    bool isTrunk() const override;
    void setTrunk(bool trunk) override;
    int zOrder() const override;
    void setZOrder(int zOrder) override;
    float alpha() const override;
    bool isEndFakeFrame() const override;
    void setClipNode(NLMapNodePtr node) override;
    NLMapNodePtr clipNode() const override;
    QSharedPointer<IVideoFrame> makeCopy() const override;
    QSharedPointer<CVideoStreamInfo> getStreamInfo() const override;
    void setStreamInfo(QSharedPointer<CVideoStreamInfo> info) override;

    /// Writes the pan-and-crop rectangle for this frame's time under "crop" when the
    /// transform animates one ("pan_crop_begin" and "pan_crop_end"); leaves the map alone
    /// otherwise, and without clip.
    void updateTransform(QVariantMap &transform) const;

private:
    bool hasClip() const;

    QSharedPointer<CVideoStreamInfo> mStreamInfo;
    int mZOrder = 0;
    bool mTrunk = false;
    std::unique_ptr<JSVideoClip> mClip; // the view of the clip this frame shows
};

/// A wrapper with seek mode 0 that carries the stream's description.
VRFETCHER_EXPORT QSharedPointer<IVideoFrame> makeVideoFrame(AVFramePtr frame,
                                                            const QSharedPointer<CVideoStreamInfo> &info);
/// The end-of-stream marker: a wrapper without picture.
VRFETCHER_EXPORT QSharedPointer<IVideoFrame> makeFakeVideoFrame();

} // namespace Veloran
