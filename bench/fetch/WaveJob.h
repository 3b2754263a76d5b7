#pragma once

#include "Projects/Fetcher/IAVFetcher.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTextStream>
#include <QVector>

struct WaveJobOptions
{
    QString file;
    qint64 beginMs = 0;
    qint64 lengthMs = 0;
    int values = 0;
    int pieces = 1;
    QString outFile; // the peak values, one byte each, in order, when set
};

// Asks one fetcher for the peaks of a range and waits for every piece on the event loop.
class WaveJob : public QObject
{
    Q_OBJECT
public:
    WaveJob(const WaveJobOptions &options, QTextStream &out);

    void start();

signals:
    void finished(int exitCode);

private:
    void onSample(qint64 id, int piece, const QList<uint8_t> &samples);
    void finish();

    const WaveJobOptions mOptions;
    QTextStream &mOut;
    QSharedPointer<Veloran::IAVFetcher> mFetcher;
    QVector<QList<uint8_t>> mPieces;
    QElapsedTimer mClock;
    qint64 mId = 0;
    int mReceived = 0;
};
