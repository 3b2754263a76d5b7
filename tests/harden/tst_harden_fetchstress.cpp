#include "TestMedia.h"

#include "Projects/Fetcher/AVPickerManager.h"
#include "Projects/Fetcher/IAVFetcher.h"

#include <QFile>
#include <QHash>
#include <QRandomGenerator>
#include <QSet>
#include <QThread>
#include <QTimer>
#include <QtTest>

#include <atomic>
#include <memory>
#include <mutex>

#include <unistd.h>

extern "C" {
#include <libavutil/log.h>
}

using namespace Veloran;

namespace {

// Fetch calls are made under this lock: request ids are unique only while one
// thread at a time asks for them (the counter is a plain one on purpose).
// Standard mutexes throughout: ThreadSanitizer sees them, not Qt's.
std::mutex gFetchCallMutex;

enum class Kind { Thumb, Freeze, Audio };

// One answer: which request (id), and which part of it (the time of a thumbnail,
// the piece of peaks; 0 for a freeze frame).
struct AnswerKey
{
    Kind kind;
    qint64 id;
    qint64 part;
    bool operator==(const AnswerKey &other) const
    {
        return kind == other.kind && id == other.id && part == other.part;
    }
};
uint qHash(const AnswerKey &key, uint seed = 0)
{
    return ::qHash(qMakePair(int(key.kind) * 1000003 + key.part, key.id), seed);
}

// What was asked, for matching the answers.
struct Asked
{
    Kind kind;
    QString file;
    QList<qint64> parts;
};

// Every request of the run, from all threads.
class Ledger
{
public:
    void add(qint64 id, const Asked &asked)
    {
        std::lock_guard<std::mutex> locker(mMutex);
        mAsked.insert(id, asked);
    }
    bool find(qint64 id, Asked *asked) const
    {
        std::lock_guard<std::mutex> locker(mMutex);
        if (!mAsked.contains(id))
            return false;
        *asked = mAsked.value(id);
        return true;
    }

private:
    mutable std::mutex mMutex;
    QHash<qint64, Asked> mAsked;
};

// Lives on its own thread with its own event loop and fetcher; sends requests on a
// timer, now and then clears or stops the service, and books every answer it sees.
class Client : public QObject
{
    Q_OBJECT
public:
    Client(Ledger *ledger, QStringList files, QString scratch, quint32 seed)
        : mLedger(ledger)
        , mFiles(std::move(files))
        , mScratch(std::move(scratch))
        , mRandom(seed)
    {
    }

    // Sends `count` requests one per timer tick, clearing or stopping at random;
    // `chaosDone` is set after the last.
    Q_INVOKABLE void startChaos(int count)
    {
        ensureFetcher();
        mLeft = count;
        auto *timer = new QTimer(this);
        timer->setInterval(2);
        connect(timer, &QTimer::timeout, this, [this, timer] {
            if (mLeft-- <= 0) {
                timer->deleteLater();
                chaosDone = true;
                return;
            }
            sendOne();
            const int dice = mRandom.bounded(100);
            if (dice < 4)
                mFetcher->clearFetching();
            else if (dice < 6)
                mFetcher->stop();
        });
        timer->start();
    }

    // Sends `count` requests at once; their ids are those that must be answered.
    Q_INVOKABLE void sendCalm(int count)
    {
        ensureFetcher();
        QList<AnswerKey> expected;
        for (int i = 0; i < count; ++i)
            expected += sendOne();
        std::lock_guard<std::mutex> locker(mMutex);
        mMustAnswer += expected;
        calmSent = true;
    }

    Q_INVOKABLE void dropFetcher() { mFetcher.reset(); }

    // Answers still missing of those that must come.
    int missing(const QList<AnswerKey> &keys) const
    {
        std::lock_guard<std::mutex> locker(mMutex);
        int count = 0;
        for (const AnswerKey &key : keys)
            count += mAnswered.contains(key) ? 0 : 1;
        return count;
    }
    QList<AnswerKey> mustAnswer() const
    {
        std::lock_guard<std::mutex> locker(mMutex);
        return mMustAnswer;
    }
    QStringList problems() const
    {
        std::lock_guard<std::mutex> locker(mMutex);
        return mProblems;
    }
    // Forget the round's bookkeeping (answered keys stay, to catch late repeats).
    void nextRound()
    {
        std::lock_guard<std::mutex> locker(mMutex);
        mMustAnswer.clear();
        chaosDone = false;
        calmSent = false;
    }

    std::atomic<bool> chaosDone {false};
    std::atomic<bool> calmSent {false};

private:
    void ensureFetcher()
    {
        if (mFetcher)
            return;
        mFetcher = createAVFetcher();
        connect(mFetcher.data(), &IAVFetcher::videoThumb, this,
                [this](qint64 id, QString file, qint64 time, bool, QImage) { book({Kind::Thumb, id, time}, file); });
        connect(mFetcher.data(), &IAVFetcher::videoFreeze, this,
                [this](qint64 id, QString file, QString, qint64, bool, bool) { book({Kind::Freeze, id, 0}, file); });
        connect(mFetcher.data(), &IAVFetcher::audioSample, this,
                [this](qint64 id, QString file, qint64, qint64, int, int, int piece, QList<uint8_t>) {
                    book({Kind::Audio, id, piece}, file);
                });
    }

    QList<AnswerKey> sendOne()
    {
        const QString file = mFiles.at(mRandom.bounded(mFiles.size()));
        const int kind = mRandom.bounded(3);
        std::lock_guard<std::mutex> calls(gFetchCallMutex);
        if (kind == 0) {
            const QVector<qint64> times {mRandom.bounded(1000), 1000 + mRandom.bounded(1000), 2500};
            const qint64 id = mFetcher->fetchVideo(file, times, 48, mRandom.bounded(2) == 0, mRandom.bounded(4) == 0);
            mLedger->add(id, {Kind::Thumb, file, {times[0], times[1], times[2]}});
            return {{Kind::Thumb, id, times[0]}, {Kind::Thumb, id, times[1]}, {Kind::Thumb, id, times[2]}};
        }
        if (kind == 1) {
            const QString save = mScratch + QStringLiteral("/freeze-%1.png").arg(mRandom.generate());
            const qint64 id = mFetcher->fetchFreezeFrame(file, save, mRandom.bounded(3000), true, false);
            mLedger->add(id, {Kind::Freeze, file, {0}});
            return {{Kind::Freeze, id, 0}};
        }
        const qint64 id = mFetcher->fetchAudio(file, mRandom.bounded(1000), 500, 20, 1, mRandom.bounded(4) == 0);
        mLedger->add(id, {Kind::Audio, file, {0}});
        return {{Kind::Audio, id, 0}};
    }

    void book(const AnswerKey &key, const QString &file)
    {
        // An answer may overtake the booking of its request: wait for the sender
        // to finish its call (and booking) first.
        { const std::lock_guard<std::mutex> calls(gFetchCallMutex); }
        Asked asked;
        std::lock_guard<std::mutex> locker(mMutex);
        if (!mLedger->find(key.id, &asked) || asked.kind != key.kind || asked.file != file
            || !asked.parts.contains(key.part))
            mProblems << QStringLiteral("answer to a request never made: id %1 part %2 %3").arg(key.id).arg(key.part).arg(file);
        else if (mAnswered.contains(key))
            mProblems << QStringLiteral("answered twice: id %1 part %2").arg(key.id).arg(key.part);
        mAnswered.insert(key);
    }

    Ledger *mLedger;
    const QStringList mFiles;
    const QString mScratch;
    QRandomGenerator mRandom;
    QSharedPointer<IAVFetcher> mFetcher;
    int mLeft = 0;

    mutable std::mutex mMutex;
    QSet<AnswerKey> mAnswered;
    QList<AnswerKey> mMustAnswer;
    QStringList mProblems;
};

// Sanitizers hold freed memory back (ASan's quarantine) or shadow it, so resident
// size says nothing there; ASan's leak check takes over.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kResidentSizeIsMeaningful = false;
#else
constexpr bool kResidentSizeIsMeaningful = true;
#endif

qint64 residentBytes()
{
    QFile statm(QStringLiteral("/proc/self/statm"));
    if (!statm.open(QIODevice::ReadOnly))
        return 0;
    const QList<QByteArray> fields = statm.readAll().split(' ');
    return fields.size() > 1 ? fields.at(1).toLongLong() * sysconf(_SC_PAGESIZE) : 0;
}

} // namespace

class HardenFetchStress : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { av_log_set_level(AV_LOG_QUIET); }

    // Several fetchers on several threads, mixed requests over good, broken and
    // missing files, clears and stops at random moments. Every answer belongs to a
    // request and comes once; requests made after the turmoil are all answered; the
    // idle picker cache stays bounded; memory settles after the first round.
    void manyFetchersUnderClearsAndStops()
    {
        const bool small = qEnvironmentVariableIsSet("VR_STRESS_SMALL");
        const int threads = small ? 2 : 4;
        const int rounds = small ? 2 : 4;
        const int chaosRequests = small ? 20 : 150;
        const int calmRequests = small ? 4 : 12;

        const QString scratch = TestMedia::scratchDir(QStringLiteral("harden-stress"));
        QFile sample(TestMedia::path(QStringLiteral("sample.mp4")));
        QVERIFY(sample.open(QIODevice::ReadOnly));
        const QByteArray sampleBytes = sample.readAll();
        QFile truncated(scratch + QStringLiteral("/truncated.mp4"));
        QVERIFY(truncated.open(QIODevice::WriteOnly));
        truncated.write(sampleBytes.left(sampleBytes.size() / 3));
        truncated.close();
        QFile garbage(scratch + QStringLiteral("/garbage.mov"));
        QVERIFY(garbage.open(QIODevice::WriteOnly));
        QByteArray noise(20000, '\0');
        QRandomGenerator(7).fillRange(reinterpret_cast<quint32 *>(noise.data()), noise.size() / 4);
        garbage.write(noise);
        garbage.close();
        const QStringList files {TestMedia::path(QStringLiteral("sample.mp4")),
                                 TestMedia::path(QStringLiteral("sine.wav")),
                                 TestMedia::path(QStringLiteral("harden-cut.ts")),
                                 truncated.fileName(),
                                 garbage.fileName(),
                                 scratch + QStringLiteral("/missing.mp4")};

        Ledger ledger;
        std::vector<std::unique_ptr<QThread>> workers;
        std::vector<Client *> clients;
        // Also on a failed check: fetchers go on their own threads, then the threads.
        struct Teardown
        {
            std::vector<std::unique_ptr<QThread>> &workers;
            std::vector<Client *> &clients;
            ~Teardown()
            {
                for (Client *client : clients)
                    QMetaObject::invokeMethod(client, "dropFetcher", Qt::BlockingQueuedConnection);
                for (auto &thread : workers) {
                    thread->quit();
                    thread->wait();
                }
            }
        } teardown {workers, clients};
        for (int i = 0; i < threads; ++i) {
            auto thread = std::make_unique<QThread>();
            auto *client = new Client(&ledger, files, scratch, 1000 + i);
            client->moveToThread(thread.get());
            connect(thread.get(), &QThread::finished, client, &QObject::deleteLater);
            thread->start();
            clients.push_back(client);
            workers.push_back(std::move(thread));
        }

        // The idle cache is watched all along.
        int mostCached = 0;
        QTimer cacheWatch;
        connect(&cacheWatch, &QTimer::timeout, this, [&] {
            mostCached = qMax(mostCached, AVPickerManager::sharedInstance()->cachedPickerFiles().size());
        });
        cacheWatch.start(5);

        qint64 firstRoundRss = 0;
        for (int round = 0; round < rounds; ++round) {
            for (Client *client : clients) {
                client->nextRound();
                QMetaObject::invokeMethod(client, "startChaos", Qt::QueuedConnection, Q_ARG(int, chaosRequests));
            }
            QTRY_VERIFY_WITH_TIMEOUT(std::all_of(clients.begin(), clients.end(), [](Client *c) { return c->chaosDone.load(); }), 120000);

            for (Client *client : clients)
                QMetaObject::invokeMethod(client, "sendCalm", Qt::QueuedConnection, Q_ARG(int, calmRequests));
            QTRY_VERIFY_WITH_TIMEOUT(std::all_of(clients.begin(), clients.end(), [](Client *c) { return c->calmSent.load(); }), 60000);

            // Every fetcher sees every answer: all calm requests of all clients.
            QList<AnswerKey> mustAnswer;
            for (Client *client : clients)
                mustAnswer += client->mustAnswer();
            for (Client *client : clients)
                QTRY_VERIFY2_WITH_TIMEOUT(client->missing(mustAnswer) == 0,
                                          qPrintable(QStringLiteral("%1 answers missing").arg(client->missing(mustAnswer))),
                                          240000);
            for (Client *client : clients)
                QVERIFY2(client->problems().isEmpty(), qPrintable(client->problems().join(QLatin1Char('\n'))));

            qInfo() << "round" << round << ":" << mustAnswer.size() << "answers required, each seen by"
                    << clients.size() << "fetchers; resident" << residentBytes() << "bytes; most cached" << mostCached;
            if (round == 0)
                firstRoundRss = residentBytes();
        }
        cacheWatch.stop();
        QVERIFY2(mostCached <= 5, qPrintable(QString::number(mostCached)));

        if (!kResidentSizeIsMeaningful)
            return;
        const qint64 lastRss = residentBytes();
        QVERIFY(firstRoundRss > 0);
        QVERIFY2(lastRss <= firstRoundRss + firstRoundRss / 10,
                 qPrintable(QStringLiteral("resident %1 after the first round, %2 at the end").arg(firstRoundRss).arg(lastRss)));

    }
};

QTEST_GUILESS_MAIN(HardenFetchStress)
#include "tst_harden_fetchstress.moc"
