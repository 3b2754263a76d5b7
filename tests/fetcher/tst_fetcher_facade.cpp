#include "PickerLog.h"
#include "TestMedia.h"

#include "Projects/Fetcher/AVFetcher.h"

#include <QFile>
#include <QEventLoop>
#include <QThread>
#include <QTimer>
#include <QtTest>

#include <atomic>
#include <mutex>

using namespace Veloran;

namespace {
constexpr int kLongWaitMs = 60000;

// A host running on a thread of its own: it makes its fetcher there, asks for two
// thumbnails and runs its event loop until told to stop. What it sees is reported
// under one mutex.
class HostThread : public QThread
{
public:
    struct Report
    {
        qint64 id = 0;
        QList<qint64> answered;
        QList<QThread *> threads;
        bool done = false;
    };

    explicit HostThread(const QString &file)
        : mFile(file)
    {
    }

    Report report()
    {
        std::lock_guard<std::mutex> locker(mMutex);
        return mReport;
    }

    std::atomic_bool stopWanted{false};

protected:
    void run() override
    {
        QSharedPointer<IAVFetcher> fetcher = createAVFetcher();
        connect(fetcher.data(), &IAVFetcher::videoThumb, fetcher.data(),
                [this](qint64 id, QString, qint64, bool, QImage) {
                    std::lock_guard<std::mutex> locker(mMutex);
                    mReport.answered << id;
                    mReport.threads << QThread::currentThread();
                });
        const qint64 id = fetcher->fetchVideo(mFile, {0, 800}, 40, true, false);
        {
            std::lock_guard<std::mutex> locker(mMutex);
            mReport.id = id;
        }
        QEventLoop loop;
        QTimer poll;
        connect(&poll, &QTimer::timeout, &loop, [&] {
            if (stopWanted)
                loop.quit();
        });
        poll.start(20);
        loop.exec();
        fetcher.reset();
        std::lock_guard<std::mutex> locker(mMutex);
        mReport.done = true;
    }

private:
    const QString mFile;
    std::mutex mMutex;
    Report mReport;
};

} // namespace

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
        HostThread host(TestMedia::path("sample.mp4"));
        host.start();
        QTRY_COMPARE_WITH_TIMEOUT(host.report().answered.size(), 2, kLongWaitMs);
        const HostThread::Report report = host.report();
        QVERIFY(report.id > 0);
        QCOMPARE(report.answered, (QList<qint64>{report.id, report.id}));
        QCOMPARE(report.threads, (QList<QThread *>{&host, &host}));
        host.stopWanted = true;
        QTRY_VERIFY_WITH_TIMEOUT(host.report().done, kLongWaitMs);
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
