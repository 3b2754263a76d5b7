#pragma once

#include <Projects/Fetcher/IAVFetcher.h>

#include <QElapsedTimer>
#include <QMap>
#include <QObject>
#include <QSharedPointer>
#include <QVector>

// One pass of the demo over a file: asks for thumbnails across its duration, a
// freeze frame and the waveform of the whole file, reports each answer as it arrives,
// and, when everything is in, writes the pictures and the timings.
class DemoRun : public QObject
{
    Q_OBJECT
public:
    struct Options
    {
        QString file;
        QString outDir;
        qint64 durationMs = 0;
        int thumbnails = 12;
        int thumbnailWidth = 240;
        int peaks = 1200;
        int pieces = 8;
    };

    explicit DemoRun(const Options &options, QObject *parent = nullptr);

    void start();

signals:
    void finished(bool ok);

private:
    void onThumb(qint64 id, const QString &filePath, qint64 time, bool seekFlag, const QImage &image);
    void onFreeze(qint64 id, const QString &filePath, const QString &savePath, qint64 time, bool seekFlag,
                  bool success);
    void onSample(qint64 id, const QString &filePath, qint64 begin, qint64 length, int sampleCount, int count,
                  int piece, const QList<uint8_t> &samples);
    void finishIfDone();
    bool writeResults();

    Options mOptions;
    QSharedPointer<Veloran::IAVFetcher> mFetcher;
    QElapsedTimer mClock;

    qint64 mThumbId = 0;
    qint64 mFreezeId = 0;
    qint64 mAudioId = 0;
    QMap<qint64, QImage> mThumbs;
    QMap<int, QList<uint8_t>> mPieces;
    bool mFreezeDone = false;
    bool mFreezeOk = false;
    bool mAudioFailed = false;
    qint64 mThumbsMs = -1;
    qint64 mFreezeMs = -1;
    qint64 mAudioMs = -1;
    int mExpectedThumbs = 0;
};
