#include "FetchAnswers.h"
#include "TestMedia.h"
#include "VobTestKit.h"

#include "VeloranBaseEntry.h"
#include "VeloranDec/FFVobDemuxer.h"
#include "VeloranDec/VobEntryManager.h"

#include <QThread>
#include <QtTest>

#include <atomic>
#include <memory>
#include <vector>

using namespace Veloran;
using namespace VobTestKit;

class TstVobThreads : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    // Pickers on pool threads open the same file at once: one scan serves them all.
    void concurrentScansOfOnePathScanOnce()
    {
        const QString path = writeScratch("threads", "shared.VOB", readAll(chaptersPath()));
        QVERIFY(!path.isEmpty());
        VobEntryManager *index = VobEntryManager::sharedInstance();
        const quint64 scans = index->scanCount();

        constexpr int kThreads = 8;
        std::atomic<int> arrived {0};
        QVector<QVector<VobChapter>> results(kThreads);
        std::vector<std::unique_ptr<QThread>> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back(QThread::create([&, i] {
                ++arrived;
                // Start together, so the scans really overlap.
                while (arrived.load() < kThreads)
                    QThread::yieldCurrentThread();
                results[i] = index->scanVobEntry(path);
            }));
            threads.back()->start();
        }
        for (auto &thread : threads)
            QVERIFY(thread->wait(120000));

        QCOMPARE(index->scanCount(), scans + 1);
        for (const QVector<VobChapter> &chapters : results) {
            QCOMPARE(chapters.size(), kSegments);
            QCOMPARE(chapters.last().startPos, results[0].last().startPos);
        }
    }

    // Demuxers on several threads open and read files the index knows or is
    // scanning, while the index keeps evicting entries around them.
    void demuxersOnManyThreadsShareTheIndex()
    {
        const QByteArray bytes = readAll(chaptersPath());
        QStringList paths;
        for (int i = 0; i < 3; ++i)
            paths << writeScratch(QStringLiteral("threads-%1").arg(i), QStringLiteral("file%1.VOB").arg(i), bytes);

        constexpr int kThreads = 6;
        QVector<qint64> durations(kThreads, -1);
        QVector<int> packets(kThreads, 0);
        std::vector<std::unique_ptr<QThread>> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back(QThread::create([&, i] {
                FFVobDemuxer demuxer; // belongs to this thread
                if (!demuxer.open(paths[i % paths.size()]))
                    return;
                durations[i] = demuxer.durationMs();
                demuxer.seek(2500 + 300 * i);
                while (demuxer.readPacket() && packets[i] < 100000)
                    ++packets[i];
                // Entries of other files come and go meanwhile.
                for (int k = 0; k < 20; ++k)
                    VobEntryManager::sharedInstance()->scanVobEntry(
                        TestMedia::path(QStringLiteral("vob-missing-%1-%2.vob").arg(i).arg(k)));
            }));
            threads.back()->start();
        }
        for (auto &thread : threads)
            QVERIFY(thread->wait(120000));
        for (int i = 0; i < kThreads; ++i) {
            QVERIFY2(qAbs(durations[i] - 6000) <= 120, qPrintable(QString::number(durations[i])));
            QVERIFY(packets[i] > 0);
        }
        QVERIFY(VobEntryManager::sharedInstance()->entryCount() <= VobEntryManager::kMaxEntries);
    }

    // End to end: thumbnails of the joined file through the fetch service, whose
    // pickers read it by chapters while the base library's setting asks for it.
    void thumbnailsShowTheFrameAtTheirTime()
    {
        VeloranBaseEntry()->properties()->setValue(QStringLiteral("kVob_DeMux_Enabled"), true);
        QSharedPointer<IAVFetcher> fetcher = createAVFetcher();
        const QVector<qint64> times {100, 1000, 2100, 2900, 3700, 4500, 5900, 1500};
        const QMap<qint64, QImage> thumbs = FetchAnswers::thumbnails(fetcher.data(), chaptersPath(), times, 160, 120000);
        VeloranBaseEntry()->properties()->remove(QStringLiteral("kVob_DeMux_Enabled"));
        QCOMPARE(thumbs.size(), times.size());
        for (qint64 time : times) {
            QCOMPARE(thumbs.value(time).width(), 160);
            // Times count from the first audio sample, 10 ms before the first picture.
            // Chapter times are good to a frame (as the stream reader's), and the
            // picture, converted to RGB, tells its number to one more.
            const int shown = globalFrame(identify(thumbs.value(time)));
            QVERIFY2(qAbs(shown - (time - 10) / kFrameMs) <= 2,
                     qPrintable(QStringLiteral("at %1 ms: frame %2").arg(time).arg(shown)));
        }
    }
};

QTEST_GUILESS_MAIN(TstVobThreads)
#include "tst_vob_threads.moc"
