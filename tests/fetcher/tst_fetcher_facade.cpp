#include "PickerLog.h"
#include "TestMedia.h"

#include "Projects/Fetcher/AVFetcher.h"

#include <QFile>
#include <QThread>
#include <QtTest>

using namespace Veloran;

namespace {
constexpr int kLongWaitMs = 60000;
}

class TstFetcherFacade : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(QFile::exists(TestMedia::path("sample.mp4")));
        QVERIFY(QFile::exists(TestMedia::path("fetch-material/resource.rcc")));
    }

    void everyThumbnailArrivesUnderItsCallsId()
    {
        QSharedPointer<IAVFetcher> fetcher = createAVFetcher();
        QSignalSpy thumbs(fetcher.data(), &IAVFetcher::videoThumb);
        const QString file = TestMedia::path("sample.mp4");
        const qint64 first = fetcher->fetchVideo(file, {0, 1000, 2000}, 80, true, false);
        const qint64 second = fetcher->fetchVideo(file, {500, 1500, 2500}, 80, false, false);
        QCOMPARE(second, first + 1);
        QTRY_COMPARE_WITH_TIMEOUT(thumbs.size(), 6, kLongWaitMs);

        QMap<qint64, QList<qint64>> timesById;
        for (const QList<QVariant> &signal : qAsConst(thumbs)) {
            const qint64 id = signal.at(0).toLongLong();
            QCOMPARE(signal.at(1).toString(), file);
            QCOMPARE(signal.at(3).toBool(), id == first); // seekFlag echoed
            const QImage image = signal.at(4).value<QImage>();
            QCOMPARE(image.size(), QSize(80, 60));
            timesById[id] << signal.at(2).toLongLong();
        }
        QCOMPARE(timesById.keys(), (QList<qint64>{first, second}));
        QCOMPARE(timesById[first], (QList<qint64>{0, 1000, 2000}));
        QCOMPARE(timesById[second], (QList<qint64>{500, 1500, 2500}));

        // A call without times still takes an id and answers nothing.
        const qint64 empty = fetcher->fetchVideo(file, {}, 80, true, false);
        QCOMPARE(empty, second + 1);
        const qint64 freeze = fetcher->fetchFreezeFrame(file, QString(), 0, true, false);
        QCOMPARE(freeze, empty + 1);
        QSignalSpy freezes(fetcher.data(), &IAVFetcher::videoFreeze);
        QVERIFY(freezes.wait(kLongWaitMs));
        QCOMPARE(freezes.first().at(0).toLongLong(), freeze);
        QCOMPARE(thumbs.size(), 6);
    }

    void answersArriveOnTheHostsOwnThread()
    {
        QThread host;
        host.start();
        QObject context;
        context.moveToThread(&host);

        struct Seen
        {
            QMutex mutex;
            QList<qint64> ids;
            QList<QThread *> threads;
        };
        auto seen = std::make_shared<Seen>();
        QSharedPointer<IAVFetcher> fetcher;
        qint64 id = 0;
        // Create the fetcher and make the call on the host thread, as a host would.
        QMetaObject::invokeMethod(
            &context,
            [&] {
                fetcher = createAVFetcher();
                connect(fetcher.data(), &IAVFetcher::videoThumb, fetcher.data(),
                        [seen](qint64 answered, QString, qint64, bool, QImage) {
                            QMutexLocker locker(&seen->mutex);
                            seen->ids << answered;
                            seen->threads << QThread::currentThread();
                        });
                id = fetcher->fetchVideo(TestMedia::path("sample.mp4"), {0, 800}, 40, true, false);
            },
            Qt::BlockingQueuedConnection);
        QVERIFY(id > 0);
        const auto answers = [seen] {
            QMutexLocker locker(&seen->mutex);
            return seen->ids.size();
        };
        QTRY_COMPARE_WITH_TIMEOUT(answers(), 2, kLongWaitMs);
        {
            QMutexLocker locker(&seen->mutex);
            QCOMPARE(seen->ids, (QList<qint64>{id, id}));
            QCOMPARE(seen->threads, (QList<QThread *>{&host, &host}));
        }
        QMetaObject::invokeMethod(&context, [&] { fetcher.reset(); }, Qt::BlockingQueuedConnection);
        host.quit();
        host.wait();
    }

    void fetchersMadeLaterStillGetTheAnswer()
    {
        qint64 id = 0;
        QSharedPointer<IAVFetcher> later;
        {
            GateHold gate; // holds the picker before its first frame
            QSharedPointer<IAVFetcher> early = createAVFetcher();
            id = early->fetchVideo(TestMedia::path("sample.mp4"), {1200}, 48, true, false);
            later = createAVFetcher();
        } // the early fetcher is gone, then the gate opens
        QSignalSpy thumbs(later.data(), &IAVFetcher::videoThumb);
        QVERIFY(thumbs.wait(kLongWaitMs));
        QCOMPARE(thumbs.first().at(0).toLongLong(), id);
        QCOMPARE(thumbs.first().at(2).toLongLong(), 1200);
    }

    void materialFolderIsReadFromItsResourceFile()
    {
        QSharedPointer<IAVFetcher> fetcher = createAVFetcher();
        QSignalSpy samples(fetcher.data(), &IAVFetcher::audioSample);
        const QString folder = TestMedia::path("fetch-material");
        const qint64 fromFolder = fetcher->fetchAudio(folder, 200, 1000, 40, 1, false);
        QVERIFY(samples.wait(kLongWaitMs));
        const qint64 fromFile = fetcher->fetchAudio(TestMedia::path("fetch-tone.wav"), 200, 1000, 40, 1, false);
        QTRY_COMPARE_WITH_TIMEOUT(samples.size(), 2, kLongWaitMs);

        const QList<QVariant> folderAnswer = samples.at(0);
        QCOMPARE(folderAnswer.at(0).toLongLong(), fromFolder);
        QCOMPARE(folderAnswer.at(1).toString(), folder); // echoed as given
        QCOMPARE(folderAnswer.at(2).toLongLong(), 200);
        QCOMPARE(folderAnswer.at(3).toLongLong(), 1000);
        QCOMPARE(folderAnswer.at(4).toInt(), 40);
        QCOMPARE(folderAnswer.at(5).toInt(), 1);
        QCOMPARE(folderAnswer.at(6).toInt(), 0);
        const QList<uint8_t> folderPeaks = folderAnswer.at(7).value<QList<uint8_t>>();
        QCOMPARE(folderPeaks.size(), 40);
        QVERIFY(*std::max_element(folderPeaks.begin(), folderPeaks.end()) > 20); // not silence

        QCOMPARE(samples.at(1).at(0).toLongLong(), fromFile);
        QCOMPARE(folderPeaks, samples.at(1).at(7).value<QList<uint8_t>>());
    }
};

QTEST_GUILESS_MAIN(TstFetcherFacade)
#include "tst_fetcher_facade.moc"
