#pragma once

#include "vrfetcher_export.h"

#include <QImage>
#include <QList>
#include <QObject>
#include <QSharedPointer>
#include <QString>
#include <QVector>

namespace Veloran {

/// The host's handle on the fetch service. Every fetch call returns a request id at
/// once; the answers arrive later through the signals, on the thread that owns the
/// fetcher (it must run an event loop). Every fetcher sees every answer of the
/// process: hosts pick theirs by id.
///
/// Ids come from one process-wide counter starting at 1 that is not locked: they
/// are unique only while fetch calls are made from one thread at a time (in
/// practice the host's main thread). With `priority` a request goes before the
/// waiting ones of its kind (video or audio); otherwise it queues at the end.
/// Failures never throw: they arrive as a null image, `success` false or an
/// empty sample list.
class VRFETCHER_EXPORT IAVFetcher : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    /// Keeps the thumbnails and waveform peaks the service computes as files in
    /// `directory` (made when missing) and answers later requests for the same
    /// unchanged file with the same parameters from there: through the same signals,
    /// ids and order, without decoding. A changed file (path, size, modification time)
    /// is computed again; freeze frames are always computed. An empty path (the
    /// default) turns the cache off. Process-wide like the scheduler: it applies to
    /// every fetcher and to requests already queued. Several processes may share a folder.
    static void setCacheDirectory(const QString &directory);
    /// Bounds the cache folder to about `bytes`: past it the entries used longest ago
    /// are removed. 0 (the default) sets no bound. Process-wide.
    static void setCacheSizeLimit(qint64 bytes);

public slots:
    /// One frame written to `savePath` (the image format follows its suffix).
    /// `seekFlag` asks for the frame shown at `time` (ms) rather than the key frame
    /// a seek lands on. Answered once by videoFreeze().
    virtual qint64 fetchFreezeFrame(const QString &filePath, const QString &savePath, qint64 time,
                                    bool seekFlag, bool priority) = 0;
    /// Thumbnails `width` pixels wide at each of `times` (ms); all share the returned
    /// id and are queued as one block (with `priority`, in their own order before
    /// every waiting video request). `seekFlag` as for fetchFreezeFrame(). Answered
    /// by one videoThumb() per time.
    virtual qint64 fetchVideo(const QString &filePath, const QVector<qint64> &times, int width,
                              bool seekFlag, bool priority) = 0;
    /// `sampleCount` peak values over [begin, begin + length) ms, in `count` pieces,
    /// each answered by audioSample(). `filePath` may be a material folder
    /// (config.json + resource.rcc).
    virtual qint64 fetchAudio(const QString &filePath, qint64 begin, qint64 length, int sampleCount,
                              int count, bool priority) = 0;
    /// Drops every queued request (of every fetcher); they are not answered. Work
    /// already running goes on.
    virtual void clearFetching() = 0;
    /// Drops every queued request and interrupts the running work (of every
    /// fetcher); interrupted requests may get no answer or only part of it.
    virtual void stop() = 0;

signals:
    /// One thumbnail of request `id`; the other values are echoed from the request.
    /// `image` is null when the file could not be opened, and a black 4:3 picture
    /// when no frame could be read at `time` (past the end, damaged data).
    void videoThumb(qint64 id, QString filePath, qint64 time, bool seekFlag, QImage image);
    /// The freeze frame of request `id`; `success` is false when no frame could be
    /// read or the image could not be written to `savePath`.
    void videoFreeze(qint64 id, QString filePath, QString savePath, qint64 time, bool seekFlag, bool success);
    /// One piece of the peaks of audio request `id`: `value` is the piece's number
    /// (0 to count - 1) and `samples` its peak values (0 to 255, missing audio as 0).
    /// `filePath` is echoed as given; `length` is cut to the end of a shorter file.
    /// A file that does not open gets one answer with `value` 0 and no samples.
    void audioSample(qint64 id, QString filePath, qint64 begin, qint64 length, int sampleCount, int count,
                     int value, QList<uint8_t> samples);
};

/// A new fetcher on the process-wide fetch service, living in the calling thread
/// (answers arrive there). Never null.
VRFETCHER_EXPORT QSharedPointer<IAVFetcher> createAVFetcher();

} // namespace Veloran
