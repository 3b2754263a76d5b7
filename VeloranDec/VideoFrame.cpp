#include "VideoFrame.h"

#include "Model/JSVideoClip.h"
#include "VeloranDec/StreamInfoUtils.h"

#include <QStringList>

namespace Veloran {

VideoFrame::VideoFrame(AVFramePtr frame, int seekMode)
    : FrameWrapper(std::move(frame), -1, seekMode)
{
}

// Members go in reverse order: the clip view first, then the stream description and
// the picture.
VideoFrame::~VideoFrame() = default;

QSize VideoFrame::frameSize() const
{
    return mFrame ? QSize(mFrame->width, mFrame->height) : QSize(-1, -1);
}

int VideoFrame::lineSize(int plane) const
{
    return mFrame ? mFrame->linesize[plane] : 0;
}

QList<QVariantMap> VideoFrame::filters() const
{
    return mClip ? mClip->filters() : QList<QVariantMap>();
}

int VideoFrame::getRotation() const
{
    return mStreamInfo ? mStreamInfo->rotation : 0;
}

QSize VideoFrame::displaySize() const
{
    if (!mFrame)
        return QSize(-1, -1);
    if (!mStreamInfo)
        return QSize(mFrame->width, mFrame->height);
    return calcDisplaySize(mFrame->width, mFrame->height, mStreamInfo->rotation, mStreamInfo->sar);
}

AVFramePtr VideoFrame::getRawFrame() const
{
    return mFrame;
}

bool VideoFrame::isInterlace() const
{
    return mFrame && mFrame->interlaced_frame != 0;
}

QVariantMap VideoFrame::transformMap() const
{
    if (!hasClip())
        return {};
    QVariantMap transform = mClip->transform().props();
    updateTransform(transform);
    return transform;
}

void VideoFrame::updateTransform(QVariantMap &transform) const
{
    if (!hasClip())
        return;
    const QString endText = transform.value(QStringLiteral("pan_crop_end")).toString();
    const QString beginText = transform.value(QStringLiteral("pan_crop_begin")).toString();
    if (endText.isEmpty() || beginText.isEmpty())
        return;
    const QStringList end = endText.split(QLatin1Char(','));
    const QStringList begin = beginText.split(QLatin1Char(','));
    if (end.size() != 4 || begin.size() != 4)
        return;

    // The rectangle moves linearly from begin at the clip's first frame to end at its
    // last; frames outside the clip extrapolate. Single precision throughout, so the
    // renderer and this code agree on every value.
    const long long t = pts() - mClip->timelinePos();
    const long long length = mClip->timelineLength();
    float crop[4];
    for (int i = 0; i < 4; ++i) {
        const float b = begin[i].toFloat();
        const float e = end[i].toFloat();
        crop[i] = b + ((e - b) / float(length)) * float(t);
    }
    transform.insert(QStringLiteral("crop"),
                     QStringLiteral("%1,%2,%3,%4").arg(crop[0]).arg(crop[1]).arg(crop[2]).arg(crop[3]));
}

bool VideoFrame::isTrunk() const
{
    return mTrunk;
}

void VideoFrame::setTrunk(bool trunk)
{
    mTrunk = trunk;
}

int VideoFrame::zOrder() const
{
    return mZOrder;
}

void VideoFrame::setZOrder(int zOrder)
{
    mZOrder = zOrder;
}

float VideoFrame::alpha() const
{
    return mClip ? mClip->alpha() : 1.0f;
}

bool VideoFrame::isEndFakeFrame() const
{
    return !mFrame;
}

void VideoFrame::setClipNode(NLMapNodePtr node)
{
    if (mClip)
        mClip->resetNode(std::move(node));
    else
        mClip = std::make_unique<JSVideoClip>(std::move(node));
}

NLMapNodePtr VideoFrame::clipNode() const
{
    return mClip ? mClip->node() : NLMapNodePtr();
}

QSharedPointer<IVideoFrame> VideoFrame::makeCopy() const
{
    const QSharedPointer<VideoFrame> copy = QSharedPointer<VideoFrame>::create(mFrame, mSeekMode);
    copy->mPts = mPts;
    copy->mStreamInfo = mStreamInfo;
    copy->mZOrder = mZOrder;
    copy->mTrunk = mTrunk;
    // The copy shares the clip's node but has its own view of it.
    if (mClip)
        copy->setClipNode(mClip->node());
    return copy;
}

QSharedPointer<CVideoStreamInfo> VideoFrame::getStreamInfo() const
{
    return mStreamInfo;
}

void VideoFrame::setStreamInfo(QSharedPointer<CVideoStreamInfo> info)
{
    mStreamInfo = std::move(info);
}

bool VideoFrame::hasClip() const
{
    return mClip && mClip->node();
}

QSharedPointer<IVideoFrame> makeVideoFrame(AVFramePtr frame, const QSharedPointer<CVideoStreamInfo> &info)
{
    QSharedPointer<IVideoFrame> wrapper = QSharedPointer<VideoFrame>::create(std::move(frame), 0);
    wrapper->setStreamInfo(info);
    return wrapper;
}

QSharedPointer<IVideoFrame> makeFakeVideoFrame()
{
    return QSharedPointer<VideoFrame>::create(AVFramePtr(), 0);
}

} // namespace Veloran
