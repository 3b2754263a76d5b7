#include "DemoRun.h"

#include "ContactSheet.h"
#include "WaveformImage.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>

#include <cstdio>

DemoRun::DemoRun(const Options &options, QObject *parent)
    : QObject(parent)
    , mOptions(options)
    , mFetcher(Veloran::createAVFetcher())
{
    // Every fetcher hears every answer of the process; the ids tell ours apart.
    connect(mFetcher.data(), &Veloran::IAVFetcher::videoThumb, this, &DemoRun::onThumb);
    connect(mFetcher.data(), &Veloran::IAVFetcher::videoFreeze, this, &DemoRun::onFreeze);
    connect(mFetcher.data(), &Veloran::IAVFetcher::audioSample, this, &DemoRun::onSample);
}

void DemoRun::start()
{
    const qint64 duration = mOptions.durationMs;
    QVector<qint64> times;
    for (int i = 0; i < mOptions.thumbnails; ++i)
        times << duration * i / mOptions.thumbnails + duration / (2 * mOptions.thumbnails);
    mExpectedThumbs = times.size();

    std::printf("reading %s (%.2f s)\n", qPrintable(mOptions.file), duration / 1000.0);
    mClock.start();
    mThumbId = mFetcher->fetchVideo(mOptions.file, times, mOptions.thumbnailWidth, true, false);
    mFreezeId = mFetcher->fetchFreezeFrame(mOptions.file, QDir(mOptions.outDir).filePath("freeze-frame.png"),
                                           duration / 2, true, false);
    mAudioId = mFetcher->fetchAudio(mOptions.file, 0, duration, mOptions.peaks, mOptions.pieces, false);
    std::printf("asked for %d thumbnails (id %lld), a freeze frame (id %lld) and %d waveform peaks in %d pieces "
                "(id %lld)\n",
                mExpectedThumbs, mThumbId, mFreezeId, mOptions.peaks, mOptions.pieces, mAudioId);
    std::fflush(stdout);
}

void DemoRun::onThumb(qint64 id, const QString &, qint64 time, bool, const QImage &image)
{
    if (id != mThumbId)
        return;
    mThumbs.insert(time, image);
    std::printf("  thumbnail %2d/%d at %6.2f s: %s\n", int(mThumbs.size()), mExpectedThumbs, time / 1000.0,
                image.isNull() ? "could not be read"
                               : qPrintable(QStringLiteral("%1x%2").arg(image.width()).arg(image.height())));
    std::fflush(stdout);
    if (mThumbs.size() == mExpectedThumbs)
        mThumbsMs = mClock.elapsed();
    finishIfDone();
}

void DemoRun::onFreeze(qint64 id, const QString &, const QString &savePath, qint64 time, bool, bool success)
{
    if (id != mFreezeId)
        return;
    mFreezeDone = true;
    mFreezeOk = success;
    mFreezeMs = mClock.elapsed();
    std::printf("  freeze frame at %.2f s %s %s\n", time / 1000.0, success ? "written to" : "could not be written to",
                qPrintable(savePath));
    std::fflush(stdout);
    finishIfDone();
}

void DemoRun::onSample(qint64 id, const QString &, qint64, qint64, int, int count, int piece,
                       const QList<uint8_t> &samples)
{
    if (id != mAudioId)
        return;
    if (samples.isEmpty() && mOptions.peaks > 0) {
        mAudioFailed = true; // the file has no readable sound
        std::printf("  waveform: no sound could be read\n");
    } else {
        mPieces.insert(piece, samples);
        const int loudest = samples.isEmpty() ? 0 : *std::max_element(samples.begin(), samples.end());
        std::printf("  waveform piece %d/%d: %d values, loudest %d\n", piece + 1, count, int(samples.size()),
                    loudest);
    }
    std::fflush(stdout);
    if (mAudioFailed || mPieces.size() == mOptions.pieces)
        mAudioMs = mClock.elapsed();
    finishIfDone();
}

void DemoRun::finishIfDone()
{
    if (mThumbsMs < 0 || !mFreezeDone || mAudioMs < 0)
        return;
    emit finished(writeResults());
}

bool DemoRun::writeResults()
{
    const QDir out(mOptions.outDir);
    bool ok = mFreezeOk;

    const QString sheetPath = out.filePath("contact-sheet.png");
    const QImage sheet = makeContactSheet(mThumbs, 4);
    const bool sheetOk = !sheet.isNull() && sheet.save(sheetPath);
    ok = ok && sheetOk;

    QVector<uint8_t> peaks;
    for (const QList<uint8_t> &piece : qAsConst(mPieces))
        peaks += piece.toVector();
    const QString wavePath = out.filePath("waveform.png");
    const QImage wave = makeWaveformImage(peaks, QSize(1200, 240));
    const bool waveOk = !wave.isNull() && wave.save(wavePath);

    std::printf("\nresults in %s\n", qPrintable(QFileInfo(mOptions.outDir).absoluteFilePath()));
    std::printf("  %-14s %s\n", "contact sheet", sheetOk ? qPrintable(sheetPath) : "not written");
    std::printf("  %-14s %s\n", "freeze frame", mFreezeOk ? qPrintable(out.filePath("freeze-frame.png")) : "not written");
    std::printf("  %-14s %s\n", "waveform", waveOk ? qPrintable(wavePath) : "not written (no sound)");
    std::printf("timings (from the requests)\n");
    std::printf("  %-14s %lld ms for %d\n", "thumbnails", mThumbsMs, mExpectedThumbs);
    std::printf("  %-14s %lld ms\n", "freeze frame", mFreezeMs);
    std::printf("  %-14s %lld ms for %d values\n", "waveform", mAudioMs, int(peaks.size()));
    std::printf("  %-14s %lld ms\n", "all", mClock.elapsed());
    std::fflush(stdout);
    return ok;
}
