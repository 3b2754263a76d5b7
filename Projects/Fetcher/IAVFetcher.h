#pragma once

#include "vrfetcher_export.h"

#include <QImage>
#include <QList>
#include <QObject>
#include <QSharedPointer>
#include <QString>
#include <QVector>

namespace Veloran {

// The host's handle on the fetch service. Every fetch call returns a request id at
// once; the answers arrive later through the signals, on the thread that owns the
// fetcher (it must run an event loop). Every fetcher sees every answer of the
// process: hosts pick theirs by id.
class VRFETCHER_EXPORT IAVFetcher : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

public slots:
    // One frame written to `savePath` (the image format follows its suffix).
    virtual qint64 fetchFreezeFrame(const QString &filePath, const QString &savePath, qint64 time,
                                    bool seekFlag, bool priority) = 0;
    // Thumbnails `width` pixels wide at each of `times`; all share the returned id.
    virtual qint64 fetchVideo(const QString &filePath, const QVector<qint64> &times, int width,
                              bool seekFlag, bool priority) = 0;
    // `sampleCount` peak values over [begin, begin + length) ms, in `count` pieces.
    // `filePath` may be a material folder (config.json + resource.rcc).
    virtual qint64 fetchAudio(const QString &filePath, qint64 begin, qint64 length, int sampleCount,
                              int count, bool priority) = 0;
    // Drops every queued request (of every fetcher).
    virtual void clearFetching() = 0;
    // Drops every queued request and interrupts the running work (of every fetcher).
    virtual void stop() = 0;

signals:
    void videoThumb(qint64 id, QString filePath, qint64 time, bool seekFlag, QImage image);
    void videoFreeze(qint64 id, QString filePath, QString savePath, qint64 time, bool seekFlag, bool success);
    void audioSample(qint64 id, QString filePath, qint64 begin, qint64 length, int sampleCount, int count,
                     int value, QList<uint8_t> samples);
};

// A new fetcher on the process-wide fetch service.
VRFETCHER_EXPORT QSharedPointer<IAVFetcher> createAVFetcher();

} // namespace Veloran
