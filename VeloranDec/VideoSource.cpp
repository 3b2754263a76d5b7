#include "VeloranDec/VideoSource.h"

#include "Common/Helpers.h"
#include "VeloranDec/Adapter/FFVideoAdapter.h"
#include "VeloranDec/CVideoStreamInfo.h"
#include "VeloranDec/FFVideoStreamReader.h"
#include "VeloranDec/StreamInfoUtils.h"
#include "VeloranDec/VideoFrame.h"

#include "VeloranBaseEntry.h"

#include <QThread>

#include <algorithm>

namespace Veloran {

VideoSource::VideoSource(QObject *parent)
    : BasicObject(parent)
{
}

VideoSource::~VideoSource() = default;

bool VideoSource::openVideo(const QString &path, const QVector<AVPixelFormat> &formats, int outputWidth)
{
    assertOwnThread();
    mPixelFormats = formats;
    mReader = std::make_unique<FFVideoStreamReader>();
    mCurrentFrame.reset();
    return openWith(outputWidth, mReader->openStream(path, AVMEDIA_TYPE_VIDEO, -1));
}

bool VideoSource::openVideo_D3D(const QString &path, const QVector<AVPixelFormat> &formats, int outputWidth)
{
    mPixelFormats = formats;
    mReader = std::make_unique<FFVideoStreamReader>();
    mCurrentFrame.reset();
    // The renderer description would come from the graphics layer, which this
    // platform does not have; the GPU name only matters to hardware decoding.
    const QString gpuName = getCodecGpuName(QString());
    return openWith(outputWidth, mReader->openStream_D3D(path, gpuName));
}

bool VideoSource::openWith(int outputWidth, bool opened)
{
    if (!opened) {
        mReader.reset();
        return false;
    }
    mOutputWidth = outputWidth;
    return true;
}

bool VideoSource::ensureAdapter(const AVFramePtr &frame)
{
    if (!frame)
        return false;
    if (mAdapter) {
        const bool fits = mOutputWidth != 0 ? mAdapter->outWidth() == mOutputWidth
                                            : mAdapter->outWidth() == mAdapter->inWidth();
        if (fits)
            return true;
        mAdapter.reset();
    }
    const auto frameFormat = AVPixelFormat(frame->format);
    // Without any accepted format there is nothing to convert to.
    if (mPixelFormats.isEmpty())
        return true;
    if (mOutputWidth == 0 && mPixelFormats.contains(frameFormat))
        return true;

    int outWidth = frame->width;
    int outHeight = frame->height;
    if (mOutputWidth >= 1 && frame->width >= 1) {
        const double aspect = double(frame->height) / frame->width;
        const int rotation = getRotation();
        if (rotation == 90 || rotation == 270) {
            // The picture is turned later: its unrotated height becomes the width.
            outWidth = int(mOutputWidth / aspect);
            outHeight = mOutputWidth;
        } else {
            outWidth = mOutputWidth;
            outHeight = int(aspect * mOutputWidth);
        }
    }
    // A picture of extreme aspect scaled to a width would be enormous the other way.
    if (std::max(outWidth, outHeight) > FFVideoAdapter::kMostOutputSide) {
        VR_LOG << "---player--- output size out of range: " << outWidth << "x" << outHeight;
        return false;
    }

    mAdapter = std::make_unique<FFVideoAdapter>();
    mAdapter->setOutFormat(mPixelFormats[0]);
    const AVPixelFormat outFormat =
        isHasAlpha(frameFormat) && mPixelFormats.size() >= 2 ? mPixelFormats[1] : mPixelFormats[0];
    mAdapter->setupContext(frame->width, frame->height, frameFormat, outWidth, outHeight, outFormat);
    return true;
}

AVFramePtr VideoSource::adaptFrame(AVFramePtr frame)
{
    if (!frame || !ensureAdapter(frame))
        return {};
    return mAdapter ? mAdapter->adapt(frame) : frame;
}

QSharedPointer<IVideoFrame> VideoSource::wrap(const AVFramePtr &frame)
{
    const AVFramePtr adapted = adaptFrame(frame);
    if (!adapted)
        return {};
    return makeVideoFrame(adapted, mReader->videoStreamInfo());
}

QSharedPointer<IVideoFrame> VideoSource::readNextAdaptFrame()
{
    assertOwnThread();
    if (!mReader)
        return {};
    QSharedPointer<IVideoFrame> wrapped = wrap(mReader->readNextFrame());
    if (wrapped)
        mCurrentFrame = wrapped;
    return wrapped;
}

QSharedPointer<IVideoFrame> VideoSource::seekAndReadNextAdaptFrame(long long ms, bool accurate)
{
    assertOwnThread();
    if (!mReader)
        return {};
    QSharedPointer<IVideoFrame> wrapped = wrap(mReader->seekAndReadNextFrame(ms, accurate));
    if (wrapped)
        mCurrentFrame = wrapped;
    return wrapped;
}

QVector<QSharedPointer<IVideoFrame>> VideoSource::revertSeekAndReadNextAdaptFrame(long long ms, long long n)
{
    assertOwnThread();
    QVector<QSharedPointer<IVideoFrame>> result;
    if (!mReader)
        return result;
    for (const AVFramePtr &frame : mReader->revertSeekAndReadFrame(ms, n)) {
        if (QSharedPointer<IVideoFrame> wrapped = wrap(frame))
            result.prepend(wrapped);
    }
    return result;
}

QSharedPointer<IVideoFrame> VideoSource::currentAdaptFrame()
{
    return mCurrentFrame;
}

long long VideoSource::curFramePts()
{
    return mCurrentFrame ? mCurrentFrame->pts() : 0;
}

long long VideoSource::frameIntervals()
{
    return mReader ? mReader->frameIntervalsMs() : 40;
}

long long VideoSource::frameIntervalsMs()
{
    return mReader ? mReader->frameIntervalsMs() : 0;
}

long long VideoSource::durationMs()
{
    return mReader ? mReader->durationMs() : 0;
}

int VideoSource::getRotation()
{
    const QSharedPointer<CVideoStreamInfo> info = mReader ? mReader->videoStreamInfo() : nullptr;
    return info ? info->rotation : 0;
}

double VideoSource::getSampleAspectRatio()
{
    const QSharedPointer<CVideoStreamInfo> info = mReader ? mReader->videoStreamInfo() : nullptr;
    if (info && info->sar.num > 0 && info->sar.den > 0)
        return double(info->sar.num) / info->sar.den;
    return 1.0;
}

bool VideoSource::isCover()
{
    return mReader && mReader->isAttachedPic();
}

bool VideoSource::isVideoAvailable()
{
    if (!mReader || mReader->isAttachedPic())
        return false;
    if (int(mReader->durationMs()) > 0)
        return true;
    return int(mReader->demuxDurationMs()) > 0;
}

QString VideoSource::coderName()
{
    return mReader ? mReader->coderName() : QString();
}

void VideoSource::resetOutputWidth(int width)
{
    mOutputWidth = width;
}

QList<BasicObject *> VideoSource::threadParts() const
{
    return {mReader.get(), mAdapter.get()};
}

} // namespace Veloran
