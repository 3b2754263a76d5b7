#include "VideoPicker.h"

#include "Common/Stopwatch.h"
#include "Projects/Fetcher/AVPickerManager.h"
#include "Projects/Fetcher/PreviewCache.h"
#include "VeloranBaseEntry.h"
#include "VeloranDec/IVideoFrame.h"
#include "VeloranDec/StreamInfoUtils.h"
#include "VeloranDec/VideoSource.h"

#include <QImage>
#include <QThread>
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

VideoPicker::VideoPicker(const QString &filePath, AVPickerManager *manager)
    : AVPicker(filePath, manager)
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
    mSource.reset(new VideoSource);
    if (!mSource->openVideo(filePath(), {AV_PIX_FMT_RGB24, AV_PIX_FMT_RGBA}, kOpenOutputWidth)) {
        mSource.reset();
        return false;
    }
    return true;
}

void VideoPicker::run()
{
    takeOver();
    if (mRequests.isEmpty()) {
        manager()->recyclePicker(this, false);
        return;
    }
    // Thumbnails kept from earlier runs; a batch found there whole never opens the file.
    const QVector<QImage> cached = PreviewCache::shared().thumbnails(mRequests);
    if (std::none_of(cached.cbegin(), cached.cend(), std::mem_fn(&QImage::isNull))) {
        for (int i = 0; i < mRequests.size(); ++i)
            emit manager()->pickedThumb(mRequests.at(i), cached.at(i));
        finishRun(true);
        return;
    }
    if (!ensureOpened()) {
        // Not cached: the next request for this file tries to open it again.
        answerWithFailures();
        mRequests.clear();
        manager()->recyclePicker(this, false);
        return;
    }
    mSource->moveSelfToThread(QThread::currentThread());

    QTransform rotation;
    if (const int degrees = mSource->getRotation())
        rotation.rotate(degrees, Qt::ZAxis);

    WorkGate *gate = VeloranBaseEntry()->workGate();
    for (int i = 0; i < mRequests.size(); ++i) {
        const VideoThumbRequest &request = mRequests.at(i);
        if (!cached.at(i).isNull()) {
            emit manager()->pickedThumb(request, cached.at(i));
            continue;
        }
        // The gate bounds decoding across the whole process; keep trying until a slot
        // frees up or the run is interrupted.
        bool admitted = false;
        while (!(admitted = gate->tryAcquire(kGateTryMs)) && !isInterruptionRequested()) {
        }
        if (isInterruptionRequested()) {
            if (admitted)
                gate->release();
            finishRun(true);
            return;
        }
        answer(request, rotation);
        gate->release();
    }
    finishRun(true);
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
        emit manager()->pickedFreeze(request, success);
    } else {
        // Stored first, so that a host that ends at its last answer still leaves it cached.
        PreviewCache::shared().storeThumbnail(request, image);
        emit manager()->pickedThumb(request, image);
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

void VideoPicker::answerWithFailures()
{
    for (const VideoThumbRequest &request : qAsConst(mRequests)) {
        if (request.isFreezeFrame())
            emit manager()->pickedFreeze(request, false);
        else
            emit manager()->pickedThumb(request, QImage());
    }
}

void VideoPicker::finishRun(bool reusable)
{
    mRequests.clear();
    // The next run may happen on another pool thread.
    if (mSource)
        mSource->moveSelfToThread(nullptr);
    manager()->recyclePicker(this, reusable);
}

} // namespace Veloran
