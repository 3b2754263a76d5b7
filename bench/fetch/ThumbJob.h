#pragma once

#include "Projects/Fetcher/IAVFetcher.h"

#include <QElapsedTimer>
#include <QHash>
#include <QObject>
#include <QTextStream>
#include <QVector>

struct ThumbJobOptions
{
    QString file;
    QVector<qint64> times; // ms, distinct
    int width = 160;
    bool exact = true;
    QString outDir; // thumbnails written as thumb_NNN.png (NNN = index in times) when set
    int batches = 1; // the same batch again and again, to watch memory
};

// Asks one fetcher for thumbnails at every time of the list, as one batch, and waits
// for all of them on the event loop; repeats the batch when asked and reports each.
class ThumbJob : public QObject
{
    Q_OBJECT
public:
    ThumbJob(const ThumbJobOptions &options, QTextStream &out);

    void start();

signals:
    void finished(int exitCode);

private:
    void startBatch();
    void onThumb(qint64 id, const QString &filePath, qint64 time, const QImage &image);

    const ThumbJobOptions mOptions;
    QTextStream &mOut;
    QSharedPointer<Veloran::IAVFetcher> mFetcher;
    QHash<qint64, int> mIndexOfTime;
    QElapsedTimer mBatchClock;
    qint64 mId = 0;
    int mBatch = 0;
    int mReceived = 0;
    int mEmpty = 0;
    int mUnwritten = 0;
};
