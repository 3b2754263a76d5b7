#include "ThumbJob.h"

#include "ProcessMemory.h"

#include <QDir>
#include <QImage>

ThumbJob::ThumbJob(const ThumbJobOptions &options, QTextStream &out)
    : mOptions(options)
    , mOut(out)
    , mFetcher(Veloran::createAVFetcher())
{
    for (int i = 0; i < mOptions.times.size(); ++i)
        mIndexOfTime.insert(mOptions.times[i], i);
    connect(mFetcher.data(), &Veloran::IAVFetcher::videoThumb, this,
            [this](qint64 id, const QString &filePath, qint64 time, bool, const QImage &image) {
                onThumb(id, filePath, time, image);
            });
}

void ThumbJob::start()
{
    if (!mOptions.outDir.isEmpty())
        QDir().mkpath(mOptions.outDir);
    startBatch();
}

void ThumbJob::startBatch()
{
    ++mBatch;
    mReceived = 0;
    mEmpty = 0;
    mUnwritten = 0;
    mBatchClock.start();
    mId = mFetcher->fetchVideo(mOptions.file, mOptions.times, mOptions.width, mOptions.exact, false);
}

void ThumbJob::onThumb(qint64 id, const QString &filePath, qint64 time, const QImage &image)
{
    if (id != mId || filePath != mOptions.file)
        return;
    ++mReceived;
    if (image.isNull())
        ++mEmpty;
    // Written during the first batch only: later batches measure the fetcher alone.
    if (mBatch == 1 && !mOptions.outDir.isEmpty() && !image.isNull()) {
        const QString name = QStringLiteral("%1/thumb_%2.png")
                                 .arg(mOptions.outDir)
                                 .arg(mIndexOfTime.value(time, -1), 3, 10, QLatin1Char('0'));
        if (!image.save(name, "PNG"))
            ++mUnwritten;
    }
    if (mReceived < mOptions.times.size())
        return;

    mOut << "batch=" << mBatch << " thumbs=" << mReceived << " null=" << mEmpty
         << " unwritten=" << mUnwritten << " ms=" << mBatchClock.elapsed()
         << " rss_kb=" << ProcessMemory::residentKb() << " peak_kb=" << ProcessMemory::peakResidentKb()
         << Qt::endl;
    const bool failed = mEmpty > 0 || mUnwritten > 0;
    if (mBatch < mOptions.batches && !failed) {
        startBatch();
        return;
    }
    emit finished(failed ? 1 : 0);
}
