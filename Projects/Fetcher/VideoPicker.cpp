#include "VideoPicker.h"

#include "Common/Stopwatch.h"
#include "Projects/Fetcher/PickerHost.h"
#include "Projects/Fetcher/PreviewCache.h"
#include "VeloranBaseEntry.h"
#include "VeloranDec/IVideoFrame.h"
#include "VeloranDec/StreamInfoUtils.h"
#include "VeloranDec/VideoSource.h"

#include <QImage>
#include <QTransform>

#include <algorithm>
#include <cmath>
#include <functional>

namespace Veloran {

namespace {
constexpr int kGateTryMs = 500;
constexpr int kOpenOutputWidth = 99;
constexpr double kSquarePixelTolerance = 0.0001;
} // namespace

VideoPicker::VideoPicker(const QString &filePath, PickerHost *host)
    : AVPicker(PickerKind::Video, filePath, host)
{
}

VideoPicker::~VideoPicker() = default;

void VideoPicker::setRequest(QList<VideoThumbRequest> &&requests)
{
    mRequests = std::move(requests);
}

bool VideoPicker::ensureOpened()
{
    if (mSource)
        return true;
    mSource = QSharedPointer<VideoSource>::create();
    if (!mSource->openVideo(filePath(), {AV_PIX_FMT_RGB24, AV_PIX_FMT_RGBA}, kOpenOutputWidth)) {
        mSource.reset();
        return false;
    }
    return true;
}

BasicObject *VideoPicker::source() const
{
    return mSource.data();
}

void VideoPicker::serve()
{
    QTransform rotation;
    if (const int degrees = mSource->getRotation())
        rotation.rotate(degrees, Qt::ZAxis);
    for (int i = 0; i < mRequests.size(); ++i) {
        const VideoThumbRequest &request = mRequests.at(i);
        if (!mCached.value(i).isNull()) {
            host()->answerThumb(request, mCached.at(i));
            continue;
        }
        if (!admitted())
            break; // the rest of the batch goes unanswered
        answer(request, rotation);
        VeloranBaseEntry()->workGate()->release();
    }
    mRequests.clear();
    mCached.clear();
}

bool VideoPicker::answerFromCache()
{
    mCached = PreviewCache::shared().thumbnails(mRequests);
    if (std::any_of(mCached.cbegin(), mCached.cend(), std::mem_fn(&QImage::isNull)))
        return false; // serve() answers the hits in their place
    for (int i = 0; i < mRequests.size(); ++i)
        host()->answerThumb(mRequests.at(i), mCached.at(i));
    mRequests.clear();
    mCached.clear();
    return true;
}

bool VideoPicker::admitted()
{
    // The gate bounds decoding across the whole process; keep trying until a slot
    // frees up or the run is interrupted.
    WorkGate *gate = VeloranBaseEntry()->workGate();
    bool entered = false;
    while (!(entered = gate->tryAcquire(kGateTryMs)) && !isInterruptionRequested()) {
    }
    if (entered && isInterruptionRequested()) {
        gate->release();
        return false;
    }
    return entered;
}

void VideoPicker::answer(const VideoThumbRequest &request, const QTransform &rotation)
{
    Stopwatch stopwatch;
    mSource->resetOutputWidth(request.width);
    const QSharedPointer<IVideoFrame> frame = mSource->seekAndReadNextAdaptFrame(request.time, request.seekFlag);

    QImage image;
    if (frame && !frame->isEndFakeFrame())
        image = toImage(*frame, rotation);
    if (image.isNull() && !request.isFreezeFrame()) {
        // Nothing to show (past the end, or unreadable): a black 4:3 placeholder.
        image = QImage(request.width, static_cast<int>(request.width * 0.75), QImage::Format_RGB888);
        image.fill(Qt::black);
    }

    if (request.isFreezeFrame()) {
        const bool success = image.save(request.savePath);
        host()->answerFreeze(request, success);
    } else {
        // Stored first, so that a host that ends at its last answer still leaves it cached.
        PreviewCache::shared().storeThumbnail(request, image);
        host()->answerThumb(request, image);
    }
}

QImage VideoPicker::toImage(const IVideoFrame &frame, const QTransform &rotation) const
{
    const int format = frame.format();
    const QSize size = frame.frameSize();
    const uint8_t *data = frame.data(0);
    const int lineSize = frame.lineSize(0);
    // Only the two packed formats the source was asked for can be wrapped safely.
    if (format != AV_PIX_FMT_RGB24 && format != AV_PIX_FMT_RGBA)
        return QImage();
    const bool alpha = isHasAlpha(static_cast<AVPixelFormat>(format));
    if (!data || size.width() < 1 || size.height() < 1 || lineSize < size.width() * (alpha ? 4 : 3))
        return QImage();

    QImage image(data, size.width(), size.height(), lineSize,
                 alpha ? QImage::Format_RGBA8888 : QImage::Format_RGB888);
    const double sar = mSource->getSampleAspectRatio();
    if (std::abs(sar - 1.0) > kSquarePixelTolerance) {
        image = image.scaled(static_cast<int>(std::round(sar * image.width())), image.height(),
                             Qt::IgnoreAspectRatio, Qt::FastTransformation);
    }
    if (!rotation.isIdentity())
        image = image.transformed(rotation, Qt::FastTransformation);
    // Detach from the frame's memory, which goes back to the decoder.
    return image.copy();
}

void VideoPicker::answerFailure()
{
    for (const VideoThumbRequest &request : qAsConst(mRequests)) {
        if (request.isFreezeFrame())
            host()->answerFreeze(request, false);
        else
            host()->answerThumb(request, QImage());
    }
    mRequests.clear();
    mCached.clear();
}

} // namespace Veloran
