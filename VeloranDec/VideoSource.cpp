#include "VeloranDec/VideoSource.h"

#include <QThread>

namespace Veloran {

VideoSource::VideoSource(QObject *parent)
    : BasicObject(parent)
{
}

VideoSource::~VideoSource() = default;

bool VideoSource::openVideo(const QString &path, const QVector<AVPixelFormat> &formats, int outputWidth)
{ return false; }

bool VideoSource::openVideo_D3D(const QString &path, const QVector<AVPixelFormat> &formats, int outputWidth)
{ return false; }

AVFramePtr VideoSource::adaptFrame(AVFramePtr frame)
{ return {}; }

QSharedPointer<IVideoFrame> VideoSource::readNextAdaptFrame()
{ return {}; }

QSharedPointer<IVideoFrame> VideoSource::seekAndReadNextAdaptFrame(long long ms, bool accurate)
{ return {}; }

QVector<QSharedPointer<IVideoFrame>> VideoSource::revertSeekAndReadNextAdaptFrame(long long ms, long long n)
{ return {}; }

QSharedPointer<IVideoFrame> VideoSource::currentAdaptFrame()
{ return {}; }

long long VideoSource::curFramePts()
{ return 0; }

long long VideoSource::frameIntervals()
{ return 0; }

long long VideoSource::frameIntervalsMs()
{ return 0; }

long long VideoSource::durationMs()
{ return 0; }

int VideoSource::getRotation()
{ return 0; }

double VideoSource::getSampleAspectRatio()
{ return 0; }

bool VideoSource::isCover()
{ return false; }

bool VideoSource::isVideoAvailable()
{ return false; }

QString VideoSource::coderName()
{ return {}; }

void VideoSource::resetOutputWidth(int width)
{ }

void VideoSource::moveSelfToThread(QThread *thread)
{ }

} // namespace Veloran
