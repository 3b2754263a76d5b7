#pragma once

#include "ClipPlan.h"

#include "Projects/Fetcher/IAVFetcher.h"

#include <QElapsedTimer>
#include <QHash>
#include <QMap>
#include <QObject>
#include <QTextStream>
#include <QVector>

// Opens a project the way an editor does: every clip's thumbnails (one call per
// clip, times ascending) and waveform asked for at once through one fetcher, then
// waits for every answer and reports when they came.
class OpenJob : public QObject
{
    Q_OBJECT
public:
    OpenJob(QVector<ClipPlan> plans, int width, QSharedPointer<Veloran::IAVFetcher> fetcher, QTextStream &out,
            QString perClipFile, QString digestFile);

    void start();

signals:
    void finished(int exitCode);

private:
    struct Arrivals
    {
        int thumbsLeft = 0;
        int nullThumbs = 0;
        double firstThumbMs = -1;
        double lastThumbMs = -1;
        double waveMs = -1;
        bool waveEmpty = false;
    };

    void onThumb(qint64 id, qint64 time, const QImage &image);
    void onWave(qint64 id, const QList<uint8_t> &samples);
    double elapsedMs() const { return mClock.nsecsElapsed() / 1e6; }
    void finishIfDone();
    void report();
    bool writePerClip() const;
    bool writeDigests() const;

    const QVector<ClipPlan> mPlans;
    const int mWidth;
    QSharedPointer<Veloran::IAVFetcher> mFetcher;
    QTextStream &mOut;
    const QString mPerClipFile;
    const QString mDigestFile;
    // SHA-256 of every answer by (clip, time; -1 for the waveform), so that two runs
    // can be compared line by line whatever order the answers came in.
    QMap<std::pair<int, qint64>, QByteArray> mDigests;
    QVector<Arrivals> mArrivals;
    QHash<qint64, int> mClipOfThumbId;
    QHash<qint64, int> mClipOfWaveId;
    QElapsedTimer mClock;
    int mOutstanding = 0;
    double mAllThumbsMs = 0;
    double mAllWavesMs = 0;
};
