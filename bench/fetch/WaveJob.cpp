#include "WaveJob.h"

#include "ProcessMemory.h"

#include <QFile>

WaveJob::WaveJob(const WaveJobOptions &options, QTextStream &out)
    : mOptions(options)
    , mOut(out)
    , mFetcher(Veloran::createAVFetcher())
    , mPieces(options.pieces)
{
    connect(mFetcher.data(), &Veloran::IAVFetcher::audioSample, this,
            [this](qint64 id, const QString &, qint64, qint64, int, int, int value,
                   const QList<uint8_t> &samples) { onSample(id, value, samples); });
}

void WaveJob::start()
{
    mClock.start();
    mId = mFetcher->fetchAudio(mOptions.file, mOptions.beginMs, mOptions.lengthMs, mOptions.values,
                               mOptions.pieces, false);
}

void WaveJob::onSample(qint64 id, int piece, const QList<uint8_t> &samples)
{
    if (id != mId)
        return;
    // A file that cannot be opened is answered once with no values.
    if (samples.isEmpty() && mOptions.values > 0) {
        mOut << "wave failed: empty answer" << Qt::endl;
        emit finished(1);
        return;
    }
    if (piece < 0 || piece >= mPieces.size())
        return;
    mPieces[piece] = samples;
    if (++mReceived == mPieces.size())
        finish();
}

void WaveJob::finish()
{
    const qint64 elapsed = mClock.elapsed();
    QByteArray bytes;
    bytes.reserve(mOptions.values);
    for (const QList<uint8_t> &piece : qAsConst(mPieces))
        for (uint8_t value : piece)
            bytes.append(char(value));
    int nonZero = 0;
    int highest = 0;
    for (char c : qAsConst(bytes)) {
        const int v = uint8_t(c);
        nonZero += v != 0;
        highest = std::max(highest, v);
    }
    bool written = true;
    if (!mOptions.outFile.isEmpty()) {
        QFile file(mOptions.outFile);
        written = file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
    }
    mOut << "wave values=" << bytes.size() << " pieces=" << mReceived << " nonzero=" << nonZero
         << " max=" << highest << " ms=" << elapsed << " rss_kb=" << ProcessMemory::residentKb()
         << " peak_kb=" << ProcessMemory::peakResidentKb() << Qt::endl;
    emit finished(bytes.size() == mOptions.values && written ? 0 : 1);
}
