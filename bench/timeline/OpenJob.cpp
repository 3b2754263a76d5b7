#include "OpenJob.h"

#include "Percentiles.h"

#include "../fetch/ProcessMemory.h"

#include <QFile>
#include <QImage>

OpenJob::OpenJob(QVector<ClipPlan> plans, int width, QSharedPointer<Veloran::IAVFetcher> fetcher, QTextStream &out,
                 QString perClipFile)
    : mPlans(std::move(plans))
    , mWidth(width)
    , mFetcher(std::move(fetcher))
    , mOut(out)
    , mPerClipFile(std::move(perClipFile))
    , mArrivals(mPlans.size())
{
    connect(mFetcher.data(), &Veloran::IAVFetcher::videoThumb, this,
            [this](qint64 id, const QString &, qint64, bool, const QImage &image) { onThumb(id, image); });
    connect(mFetcher.data(), &Veloran::IAVFetcher::audioSample, this,
            [this](qint64 id, const QString &, qint64, qint64, int, int, int, const QList<uint8_t> &samples) {
                onWave(id, samples);
            });
}

void OpenJob::start()
{
    mClock.start();
    for (int i = 0; i < mPlans.size(); ++i) {
        const ClipPlan &plan = mPlans[i];
        if (plan.hasVideo) {
            mArrivals[i].thumbsLeft = plan.thumbTimes.size();
            mOutstanding += plan.thumbTimes.size();
            mClipOfThumbId.insert(mFetcher->fetchVideo(plan.file, plan.thumbTimes, mWidth, true, false), i);
        }
        if (plan.hasAudio) {
            ++mOutstanding;
            mClipOfWaveId.insert(mFetcher->fetchAudio(plan.file, 0, plan.durationMs, plan.waveValues, 1, false), i);
        }
    }
}

void OpenJob::onThumb(qint64 id, const QImage &image)
{
    const auto clip = mClipOfThumbId.constFind(id);
    if (clip == mClipOfThumbId.constEnd())
        return;
    Arrivals &arrivals = mArrivals[*clip];
    const double now = elapsedMs();
    if (arrivals.firstThumbMs < 0)
        arrivals.firstThumbMs = now;
    arrivals.lastThumbMs = now;
    arrivals.nullThumbs += image.isNull() ? 1 : 0;
    --arrivals.thumbsLeft;
    mAllThumbsMs = now;
    --mOutstanding;
    finishIfDone();
}

void OpenJob::onWave(qint64 id, const QList<uint8_t> &samples)
{
    const auto clip = mClipOfWaveId.constFind(id);
    if (clip == mClipOfWaveId.constEnd())
        return;
    Arrivals &arrivals = mArrivals[*clip];
    arrivals.waveMs = elapsedMs();
    arrivals.waveEmpty = samples.isEmpty();
    mAllWavesMs = arrivals.waveMs;
    --mOutstanding;
    finishIfDone();
}

void OpenJob::finishIfDone()
{
    if (mOutstanding > 0)
        return;
    report();
    bool complete = writePerClip();
    for (const Arrivals &arrivals : qAsConst(mArrivals))
        complete = complete && arrivals.nullThumbs == 0 && !arrivals.waveEmpty;
    emit finished(complete ? 0 : 1);
}

void OpenJob::report()
{
    QVector<double> first, clipDone, waves;
    int thumbs = 0, nullThumbs = 0, emptyWaves = 0;
    for (int i = 0; i < mPlans.size(); ++i) {
        const Arrivals &arrivals = mArrivals[i];
        if (mPlans[i].hasVideo) {
            first << arrivals.firstThumbMs;
            clipDone << arrivals.lastThumbMs;
            thumbs += mPlans[i].thumbTimes.size();
            nullThumbs += arrivals.nullThumbs;
        }
        if (mPlans[i].hasAudio) {
            waves << arrivals.waveMs;
            emptyWaves += arrivals.waveEmpty ? 1 : 0;
        }
    }
    mOut << "clips=" << mPlans.size() << " video_clips=" << first.size() << " audio_clips=" << waves.size()
         << " thumbs=" << thumbs << " null_thumbs=" << nullThumbs << " empty_waves=" << emptyWaves << '\n'
         << "first_thumb_ms " << Percentiles(first).summary() << '\n'
         << "clip_thumbs_ms " << Percentiles(clipDone).summary() << '\n'
         << "wave_ms " << Percentiles(waves).summary() << '\n'
         << "all_thumbs_ms=" << qRound(mAllThumbsMs) << " all_waves_ms=" << qRound(mAllWavesMs)
         << " all_ms=" << qRound(elapsedMs()) << " peak_rss_kb=" << ProcessMemory::peakResidentKb() << Qt::endl;
}

bool OpenJob::writePerClip() const
{
    if (mPerClipFile.isEmpty())
        return true;
    QFile file(mPerClipFile);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text))
        return false;
    QTextStream out(&file);
    out << "clip\tfile\tfirst_thumb_ms\tclip_thumbs_ms\twave_ms\n";
    for (int i = 0; i < mPlans.size(); ++i) {
        const Arrivals &arrivals = mArrivals[i];
        out << i << '\t' << mPlans[i].file << '\t' << qRound(arrivals.firstThumbMs) << '\t'
            << qRound(arrivals.lastThumbMs) << '\t' << qRound(arrivals.waveMs) << '\n';
    }
    return true;
}
