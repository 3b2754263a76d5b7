#include "AVFetcher.h"

#include "Model/TimelineFiles.h"
#include "Projects/Fetcher/AVPickerManager.h"
#include "Projects/Fetcher/PreviewCache.h"

#include <QFileInfo>

namespace Veloran {

namespace {
qint64 gsRequestNumber = 0;

VideoThumbRequest videoRequest(qint64 id, const QString &filePath, qint64 time, int width, bool seekFlag)
{
    VideoThumbRequest request;
    request.id = id;
    request.filePath = filePath;
    request.time = time;
    request.width = width;
    request.seekFlag = seekFlag;
    return request;
}
} // namespace

qint64 genRequestID()
{
    return ++gsRequestNumber;
}

QSharedPointer<IAVFetcher> createAVFetcher()
{
    return QSharedPointer<AVFetcher>::create();
}

void IAVFetcher::setCacheDirectory(const QString &directory)
{
    PreviewCache::shared().setDirectory(directory);
}

void IAVFetcher::setCacheSizeLimit(qint64 bytes)
{
    PreviewCache::shared().setSizeLimit(bytes);
}

AVFetcher::AVFetcher()
{
    AVPickerManager *manager = AVPickerManager::sharedInstance();
    connect(manager, &AVPickerManager::pickedThumb, this, &AVFetcher::onPickedThumb, Qt::QueuedConnection);
    connect(manager, &AVPickerManager::pickedFreeze, this, &AVFetcher::onPickedFreeze, Qt::QueuedConnection);
    connect(manager, &AVPickerManager::pickedSample, this, &AVFetcher::onPickedSample, Qt::QueuedConnection);
}

qint64 AVFetcher::fetchFreezeFrame(const QString &filePath, const QString &savePath, qint64 time, bool seekFlag,
                                   bool priority)
{
    VideoThumbRequest request = videoRequest(genRequestID(), filePath, time, 0, seekFlag);
    request.savePath = savePath;
    AVPickerManager::sharedInstance()->requestVideo(request, priority);
    return request.id;
}

qint64 AVFetcher::fetchVideo(const QString &filePath, const QVector<qint64> &times, int width, bool seekFlag,
                             bool priority)
{
    const qint64 id = genRequestID();
    QList<VideoThumbRequest> list;
    list.reserve(times.size());
    for (qint64 time : times)
        list.append(videoRequest(id, filePath, time, width, seekFlag));
    // Queued directly as one block: the manager takes it under one lock, so no helper
    // thread is needed for the call to return only once everything is queued.
    AVPickerManager::sharedInstance()->requestVideoList(std::move(list), priority);
    return id;
}

qint64 AVFetcher::fetchAudio(const QString &filePath, qint64 begin, qint64 length, int sampleCount, int count,
                             bool priority)
{
    AudioSampleRequest request;
    request.id = genRequestID();
    request.begin = begin;
    request.length = length;
    request.sampleCount = sampleCount;
    request.count = count;
    request.filePath = filePath;
    // A material folder keeps its media inside its resource file.
    request.sourcePath = QFileInfo(filePath).isDir() ? getRccSourcePath(filePath, getMaterialJsonMap(filePath))
                                                     : filePath;
    AVPickerManager::sharedInstance()->requestAudio(request, priority);
    return request.id;
}

void AVFetcher::clearFetching()
{
    AVPickerManager::sharedInstance()->clearRequests();
}

void AVFetcher::stop()
{
    AVPickerManager::sharedInstance()->stop();
}

void AVFetcher::onPickedThumb(Veloran::VideoThumbRequest request, QImage image)
{
    emit videoThumb(request.id, request.filePath, request.time, request.seekFlag, image);
}

void AVFetcher::onPickedFreeze(Veloran::VideoThumbRequest request, bool success)
{
    emit videoFreeze(request.id, request.filePath, request.savePath, request.time, request.seekFlag, success);
}

void AVFetcher::onPickedSample(Veloran::AudioSampleRequest request, QList<uint8_t> samples, int count)
{
    emit audioSample(request.id, request.filePath, request.begin, request.length, request.sampleCount,
                     request.count, count, samples);
}

} // namespace Veloran
