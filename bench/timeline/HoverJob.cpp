#include "HoverJob.h"

#include "Percentiles.h"

#include <QImage>

namespace {
constexpr qint64 kNearStepMs = 200;
constexpr int kOpeningThumbs = 5;
} // namespace

HoverJob::HoverJob(const HoverOptions &options, QSharedPointer<Veloran::IAVFetcher> fetcher, QTextStream &out)
    : mOptions(options)
    , mFetcher(std::move(fetcher))
    , mOut(out)
{
    connect(mFetcher.data(), &Veloran::IAVFetcher::videoThumb, this,
            [this](qint64 id, const QString &, qint64, bool, const QImage &image) { onThumb(id, image); });
}

void HoverJob::start()
{
    // The clip's own thumbnails first, as the timeline shows them: the file is open
    // (and its picker cached) when the pointer starts moving over it.
    QVector<qint64> times;
    for (int i = 0; i < kOpeningThumbs; ++i)
        times << mOptions.durationMs * (2 * i + 1) / (2 * kOpeningThumbs);
    ask(times, false);
}

void HoverJob::ask(const QVector<qint64> &times, bool priority)
{
    mLeft = times.size();
    mLastTime = times.last();
    mClock.start();
    mId = mFetcher->fetchVideo(mOptions.file, times, mOptions.width, true, priority);
}

void HoverJob::onThumb(qint64 id, const QImage &image)
{
    if (id != mId)
        return;
    mNullThumbs += image.isNull() ? 1 : 0;
    if (--mLeft > 0)
        return;
    const double ms = mClock.nsecsElapsed() / 1e6;
    if (mStage == Stage::Near)
        mNearMs << ms;
    else if (mStage == Stage::Far)
        mFarMs << ms;
    next();
}

qint64 HoverJob::nextTime() const
{
    if (mStage == Stage::Near)
        return (mLastTime + kNearStepMs) % mOptions.durationMs;
    // Far: half the clip on, plus an odd offset so that targets do not repeat.
    return (mLastTime + mOptions.durationMs / 2 + 1370) % mOptions.durationMs;
}

void HoverJob::next()
{
    if (mStage == Stage::Opening) {
        // One request that is not counted: the picker comes back from the cache.
        mStage = Stage::Warming;
        ask({mOptions.durationMs / 10}, true);
        return;
    }
    if (mStage == Stage::Warming)
        mStage = Stage::Near;
    if (mStage == Stage::Near && mNearMs.size() == mOptions.count)
        mStage = Stage::Far;
    if (mStage == Stage::Far && mFarMs.size() == mOptions.count) {
        mOut << "hover near n=" << mNearMs.size() << ' ' << Percentiles(mNearMs).summary() << '\n'
             << "hover far n=" << mFarMs.size() << ' ' << Percentiles(mFarMs).summary() << '\n'
             << "null_thumbs=" << mNullThumbs << Qt::endl;
        emit finished(mNullThumbs == 0 ? 0 : 1);
        return;
    }
    ask({nextTime()}, true);
}
