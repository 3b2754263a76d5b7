#pragma once

#include "Projects/Fetcher/IAVFetcher.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTextStream>
#include <QVector>

struct HoverOptions
{
    QString file;
    qint64 durationMs = 0;
    int count = 30; // requests per kind
    int width = 160;
};

// A hover preview over a clip whose thumbnails were just shown: single priority
// requests, each sent once the one before was answered. "near" asks 200 ms after
// the previous target, "far" about half the clip away; reports the latency from
// the call to the answer.
class HoverJob : public QObject
{
    Q_OBJECT
public:
    HoverJob(const HoverOptions &options, QSharedPointer<Veloran::IAVFetcher> fetcher, QTextStream &out);

    void start();

signals:
    void finished(int exitCode);

private:
    enum class Stage { Opening, Warming, Near, Far };

    void onThumb(qint64 id, const QImage &image);
    void ask(const QVector<qint64> &times, bool priority);
    void next();
    qint64 nextTime() const;

    const HoverOptions mOptions;
    QSharedPointer<Veloran::IAVFetcher> mFetcher;
    QTextStream &mOut;
    Stage mStage = Stage::Opening;
    qint64 mId = 0;
    int mLeft = 0;
    qint64 mLastTime = 0;
    QElapsedTimer mClock;
    QVector<double> mNearMs;
    QVector<double> mFarMs;
    int mNullThumbs = 0;
};
