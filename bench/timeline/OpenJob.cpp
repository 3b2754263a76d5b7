#include "OpenJob.h"

#include "Percentiles.h"

#include "../fetch/ProcessMemory.h"

#include <QCryptographicHash>
#include <QFile>
#include <QImage>

#include <functional>

OpenJob::OpenJob(QVector<ClipPlan> plans, int width, QSharedPointer<Veloran::IAVFetcher> fetcher, QTextStream &out,
                 QString perClipFile, QString digestFile)
    : mPlans(std::move(plans))
    , mWidth(width)
    , mFetcher(std::move(fetcher))
    , mOut(out)
    , mPerClipFile(std::move(perClipFile))
    , mDigestFile(std::move(digestFile))
    , mArrivals(mPlans.size())
{
    connect(mFetcher.data(), &Veloran::IAVFetcher::videoThumb, this,
            [this](qint64 id, const QString &, qint64 time, bool, const QImage &image) { onThumb(id, time, image); });
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

// The picture's format, size and pixels (line by line: the padding at the end of a
// line is not part of the picture).
static QByteArray imageDigest(const QImage &image)
{
    QCryptographicHash hash(QCryptographicHash::Sha256);
    hash.addData(QString("%1 %2x%3 ").arg(image.format()).arg(image.width()).arg(image.height()).toLatin1());
    const int lineBytes = (image.width() * image.depth() + 7) / 8;
    for (int y = 0; y < image.height(); ++y)
        hash.addData(reinterpret_cast<const char *>(image.constScanLine(y)), lineBytes);
    return hash.result().toHex();
}

static QByteArray peaksDigest(const QList<uint8_t> &samples)
{
    QByteArray bytes;
    bytes.reserve(samples.size());
    for (const uint8_t sample : samples)
        bytes.append(char(sample));
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex();
}

void OpenJob::onThumb(qint64 id, qint64 time, const QImage &image)
{
    const auto clip = mClipOfThumbId.constFind(id);
    if (clip == mClipOfThumbId.constEnd())
        return;
    if (!mDigestFile.isEmpty())
        mDigests.insert({*clip, time}, imageDigest(image));
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
    if (!mDigestFile.isEmpty())
        mDigests.insert({*clip, -1}, peaksDigest(samples));
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
    bool complete = writePerClip() && writeDigests();
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

// Writes a text file through `write`; no path asked for is no file and no failure.
static bool writeTextFile(const QString &path, const std::function<void(QTextStream &)> &write)
{
    if (path.isEmpty())
        return true;
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text))
        return false;
    QTextStream out(&file);
    write(out);
    return true;
}

bool OpenJob::writePerClip() const
{
    return writeTextFile(mPerClipFile, [this](QTextStream &out) {
        out << "clip\tfile\tfirst_thumb_ms\tclip_thumbs_ms\twave_ms\n";
        for (int i = 0; i < mPlans.size(); ++i) {
            const Arrivals &arrivals = mArrivals[i];
            out << i << '\t' << mPlans[i].file << '\t' << qRound(arrivals.firstThumbMs) << '\t'
                << qRound(arrivals.lastThumbMs) << '\t' << qRound(arrivals.waveMs) << '\n';
        }
    });
}

bool OpenJob::writeDigests() const
{
    return writeTextFile(mDigestFile, [this](QTextStream &out) {
        for (auto it = mDigests.constBegin(); it != mDigests.constEnd(); ++it) {
            const qint64 time = it.key().second;
            out << it.key().first << '\t' << (time < 0 ? QString("wave") : QString::number(time)) << '\t'
                << it.value() << '\n';
        }
    });
}
