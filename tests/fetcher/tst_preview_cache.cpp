#include "FetchAnswers.h"
#include "LogCapture.h"
#include "ScratchFiles.h"
#include "TestMedia.h"

#include "Projects/Fetcher/AVPickerManager.h"
#include "Projects/Fetcher/PreviewCache.h"
#include "Projects/Fetcher/PreviewCacheKey.h"

#include <QDateTime>
#include <QDir>
#include <QProcess>
#include <QtTest>

using namespace Veloran;
using namespace FetchAnswers;

namespace {

// One answer as bytes: every argument but the id (new at every call), pictures by
// format, size and pixel rows, peaks by their values.
QByteArray described(const QList<QVariant> &signal)
{
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    for (const QVariant &value : signal.mid(1)) {
        if (value.userType() == QMetaType::QImage) {
            const QImage image = value.value<QImage>();
            out << int(image.format()) << image.size();
            for (int row = 0; row < image.height(); ++row)
                out.writeRawData(reinterpret_cast<const char *>(image.constScanLine(row)), image.width() * image.depth() / 8);
        } else if (value.userType() == qMetaTypeId<QList<uint8_t>>()) {
            for (uint8_t peak : value.value<QList<uint8_t>>())
                out << peak;
        } else {
            out << value;
        }
    }
    return bytes;
}

// The answers to one request, in the order they came. `range` holds begin, length,
// sample count and piece count of peaks; empty asks for thumbnails at `times`.
QList<QByteArray> answersTo(IAVFetcher *fetcher, const QString &file, const QVector<qint64> &times, bool exact,
                            const QList<qint64> &range)
{
    QList<QList<QVariant>> answers;
    if (range.isEmpty()) {
        QSignalSpy spy(fetcher, &IAVFetcher::videoThumb);
        const qint64 id = fetcher->fetchVideo(file, times, 96, exact, false);
        answers = collect(spy, id, [&](const QList<QList<QVariant>> &a) { return a.size() >= times.size(); });
    } else {
        answers = peaks(fetcher, file, range[0], range[1], int(range[2]), int(range[3]));
    }
    QList<QByteArray> bytes;
    for (const QList<QVariant> &answer : qAsConst(answers))
        bytes.append(described(answer));
    return bytes;
}

QByteArray damaged(QByteArray entry, const QString &damage)
{
    if (damage == QLatin1String("emptied"))
        return {};
    if (damage.startsWith(QLatin1String("cut")))
        return entry.left(damage.endsWith(QLatin1String("header")) ? 9 : entry.size() / 2);
    const int at = damage.contains(QLatin1String("last")) ? entry.size() - 1 : 6;
    entry[at] = char(entry[at] ^ 0x10);
    return entry;
}

QStringList filesIn(const QString &dir)
{
    return QDir(dir).entryList(QDir::Files, QDir::Name);
}

QMap<QString, QByteArray> contentsOf(const QString &dir)
{
    QMap<QString, QByteArray> contents;
    for (const QString &name : filesIn(dir))
        contents.insert(name, ScratchFiles::read(dir + QLatin1Char('/') + name));
    return contents;
}

void setModified(const QString &path, const QDateTime &time)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadWrite) && file.setFileTime(time, QFileDevice::FileModificationTime));
}

// What the processes of twoProcessesWriteTheSameEntry all store.
VideoThumbRequest sharedThumbRequest(const QString &media)
{
    VideoThumbRequest request;
    request.filePath = media;
    request.time = 1000;
    request.width = 160;
    return request;
}
AudioSampleRequest sharedPeaksRequest(const QString &media)
{
    AudioSampleRequest request;
    request.sourcePath = request.filePath = media;
    request.length = 2000;
    request.sampleCount = 200;
    request.count = 4;
    return request;
}
QImage sharedThumbnail()
{
    QImage image(160, 90, QImage::Format_RGB888);
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            image.setPixel(x, y, qRgb(x, y, x ^ y));
    return image;
}
CachedPeaks sharedPeaks()
{
    CachedPeaks peaks{1999, {}};
    for (int i = 0; i < 200; ++i)
        peaks.values.append(uint8_t(i * 7));
    return peaks;
}

// The child process of twoProcessesWriteTheSameEntry: stores both entries again and again.
int storeRepeatedly(const QString &dir, const QString &media, int rounds)
{
    PreviewCache &cache = PreviewCache::shared();
    cache.setDirectory(dir);
    for (int i = 0; i < rounds; ++i) {
        cache.storeThumbnail(sharedThumbRequest(media), sharedThumbnail());
        cache.storePeaks(sharedPeaksRequest(media), sharedPeaks());
    }
    return 0;
}

} // namespace

// The preview cache: answers from it are the computed answers, it never answers for a
// changed file or from a broken entry, and it stays within its size.
class TstPreviewCache : public QObject
{
    Q_OBJECT
private:
    QSharedPointer<IAVFetcher> fetcher = createAVFetcher();
    QString scratch = TestMedia::scratchDir(QStringLiteral("preview-cache"));
    QString cacheDir;

    // A private copy of test media, which a test may change.
    QString copyOf(const QString &name, const QString &as)
    {
        const QString path = scratch + QLatin1Char('/') + as;
        QFile::remove(path);
        return QFile::copy(TestMedia::path(name), path) ? path : QString();
    }

private Q_SLOTS:
    void init()
    {
        stopService();
        cacheDir = TestMedia::scratchDir(QStringLiteral("preview-cache-entries"));
    }
    void cleanup()
    {
        IAVFetcher::setCacheDirectory(QString());
        IAVFetcher::setCacheSizeLimit(0);
    }

    void hitsAnswerLikeComputedAnswers_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QVector<qint64>>("times");
        QTest::addColumn<bool>("exact");
        QTest::addColumn<QList<qint64>>("range");
        QTest::newRow("exact thumbnails") << "sample.mp4" << QVector<qint64> {0, 1000, 2000, 3960} << true << QList<qint64>();
        QTest::newRow("key-frame thumbnails") << "sample.mp4" << QVector<qint64> {1500, 500} << false << QList<qint64>();
        QTest::newRow("turned") << "fetch-rotated.mp4" << QVector<qint64> {0, 200} << true << QList<qint64>();
        QTest::newRow("non-square pixels") << "fetch-anamorphic.mp4" << QVector<qint64> {40} << true << QList<qint64>();
        QTest::newRow("black placeholders") << "fetch-noframes.mp4" << QVector<qint64> {0, 1000} << true << QList<qint64>();
        QTest::newRow("peaks in pieces") << "fetch-tone.wav" << QVector<qint64>() << true << QList<qint64> {0, 1900, 190, 3};
        QTest::newRow("peaks cut at the end") << "fetch-tone.wav" << QVector<qint64>() << true << QList<qint64> {1000, 5000, 50, 2};
        QTest::newRow("peaks of a material folder") << "fetch-material" << QVector<qint64>() << true << QList<qint64> {200, 1000, 40, 1};
    }
    void hitsAnswerLikeComputedAnswers()
    {
        QFETCH(QString, file);
        QFETCH(QVector<qint64>, times);
        QFETCH(bool, exact);
        QFETCH(QList<qint64>, range);
        // A material folder's media lives in memory; other media is copied, so that it can be spoilt below.
        const bool folder = QFileInfo(TestMedia::path(file)).isDir();
        const QString media = folder ? TestMedia::path(file) : copyOf(file, QTest::currentDataTag() + QFileInfo(file).fileName());
        QVERIFY(!media.isEmpty());
        const QList<QByteArray> computed = answersTo(fetcher.data(), media, times, exact, range);
        QCOMPARE(computed.size(), range.isEmpty() ? times.size() : int(range[3]));

        IAVFetcher::setCacheDirectory(cacheDir);
        stopService();
        QCOMPARE(answersTo(fetcher.data(), media, times, exact, range), computed);
        QTRY_COMPARE_WITH_TIMEOUT(filesIn(cacheDir).size(), range.isEmpty() ? times.size() : 1, kWaitMs);

        // Overwritten with bytes that are no media, keeping size and modification time:
        // answers that still equal the computed ones came from the cache alone.
        if (!folder) {
            const QDateTime modified = QFileInfo(media).lastModified();
            QVERIFY(!ScratchFiles::write(media, QByteArray(QFileInfo(media).size(), 'x')).isEmpty());
            setModified(media, modified);
        }
        stopService();
        QCOMPARE(answersTo(fetcher.data(), media, times, exact, range), computed);
    }

    void aBatchMixesHitsAndMisses()
    {
        const QString media = copyOf("sample.mp4", "mixed.mp4");
        const QVector<qint64> times {0, 1000, 2000, 3000};
        const QList<QByteArray> computed = answersTo(fetcher.data(), media, times, true, {});
        IAVFetcher::setCacheDirectory(cacheDir);
        answersTo(fetcher.data(), media, {3000, 1000}, true, {});
        stopService();
        QCOMPARE(answersTo(fetcher.data(), media, times, true, {}), computed);
        QCOMPARE(filesIn(cacheDir).size(), times.size());
    }

    void aChangedFileIsComputedAgain_data()
    {
        QTest::addColumn<bool>("replaced");
        QTest::newRow("other pictures") << true;
        QTest::newRow("only its time changed") << false;
    }
    void aChangedFileIsComputedAgain()
    {
        QFETCH(bool, replaced);
        const QString media = copyOf("sample.mp4", "changed.mp4");
        const QVector<qint64> times {0, 200};
        IAVFetcher::setCacheDirectory(cacheDir);
        const QList<QByteArray> before = answersTo(fetcher.data(), media, times, true, {});
        if (replaced)
            QCOMPARE(copyOf("fetch-upright.mp4", "changed.mp4"), media);
        setModified(media, QFileInfo(media).lastModified().addSecs(60));
        stopService();
        const QList<QByteArray> after = answersTo(fetcher.data(), media, times, true, {});
        QCOMPARE(filesIn(cacheDir).size(), 2 * times.size()); // new entries beside the old ones
        QCOMPARE(after == before, !replaced);

        IAVFetcher::setCacheDirectory(QString());
        stopService();
        QCOMPARE(after, answersTo(fetcher.data(), media, times, true, {}));
    }

    void aDamagedEntryIsComputedAgain_data()
    {
        QTest::addColumn<QString>("damage");
        for (const char *damage : {"emptied", "cut in the header", "cut in half", "the last value flipped", "the version flipped"})
            QTest::newRow(damage) << QString::fromLatin1(damage);
    }
    void aDamagedEntryIsComputedAgain()
    {
        QFETCH(QString, damage);
        const QString media = copyOf("sample.mp4", "damaged.mp4");
        IAVFetcher::setCacheDirectory(cacheDir);
        const QList<QByteArray> thumbs = answersTo(fetcher.data(), media, {1000, 2000}, true, {});
        const QList<QByteArray> peaks = answersTo(fetcher.data(), media, {}, true, {0, 3000, 300, 2});
        QTRY_COMPARE_WITH_TIMEOUT(filesIn(cacheDir).size(), 3, kWaitMs); // the peaks are stored after their last piece
        const QMap<QString, QByteArray> written = contentsOf(cacheDir);
        for (auto entry = written.cbegin(); entry != written.cend(); ++entry) {
            QVERIFY(!ScratchFiles::write(cacheDir + QLatin1Char('/') + entry.key(), damaged(entry.value(), damage)).isEmpty());
        }
        stopService();
        QCOMPARE(answersTo(fetcher.data(), media, {1000, 2000}, true, {}), thumbs);
        QCOMPARE(answersTo(fetcher.data(), media, {}, true, {0, 3000, 300, 2}), peaks);
        QTRY_COMPARE_WITH_TIMEOUT(contentsOf(cacheDir), written, kWaitMs); // written again, whole
    }

    // Other processes storing the same entries while this one reads them: every read
    // finds the entry whole or not at all, and the entries end whole.
    void twoProcessesWriteTheSameEntry()
    {
        const QString media = TestMedia::path("sample.mp4");
        LogCapture log;
        PreviewCache &cache = PreviewCache::shared();
        cache.setDirectory(cacheDir);
        QList<QProcess *> writers;
        for (int i = 0; i < 2; ++i) {
            writers.append(new QProcess(this));
            writers.last()->start(QCoreApplication::applicationFilePath(),
                                  {QStringLiteral("--store"), cacheDir, media, QStringLiteral("500")});
            QVERIFY(writers.last()->waitForStarted(kWaitMs));
        }
        int hits = 0;
        const auto running = [&] {
            return std::any_of(writers.cbegin(), writers.cend(), [](QProcess *p) { return p->state() != QProcess::NotRunning; });
        };
        while (running()) {
            const QImage thumb = cache.thumbnails({sharedThumbRequest(media)}).first();
            const std::optional<CachedPeaks> peaks = cache.peaks(sharedPeaksRequest(media));
            QVERIFY(thumb.isNull() || thumb == sharedThumbnail());
            QVERIFY(!peaks || (peaks->length == sharedPeaks().length && peaks->values == sharedPeaks().values));
            hits += !thumb.isNull() + bool(peaks);
            QCoreApplication::processEvents();
        }
        for (QProcess *writer : qAsConst(writers))
            QVERIFY(writer->exitStatus() == QProcess::NormalExit && writer->exitCode() == 0);
        QVERIFY(hits > 0);
        QVERIFY(!log.hasRecord(QStringLiteral("preview cache: a damaged entry, computed again")));
        QCOMPARE(cache.thumbnails({sharedThumbRequest(media)}).first(), sharedThumbnail());
        QCOMPARE(cache.peaks(sharedPeaksRequest(media))->values, sharedPeaks().values);
        QCOMPARE(filesIn(cacheDir).size(), 2); // no temporary file left behind
        qDeleteAll(writers);
    }

    void theSizeLimitRemovesTheLeastRecentlyUsed()
    {
        PreviewCache &cache = PreviewCache::shared();
        cache.setDirectory(cacheDir);
        QList<VideoThumbRequest> requests;
        const auto entry = [&](int i) { return cacheDir + QLatin1Char('/') + PreviewCacheKey::thumbnail(requests[i]).fileName(); };
        // Ten entries used an hour apart, the first longest ago; then the first is used again.
        const QDateTime now = QDateTime::currentDateTimeUtc();
        for (int i = 0; i < 10; ++i) {
            requests.append(sharedThumbRequest(TestMedia::path("sample.mp4")));
            requests.last().time = i;
            cache.storeThumbnail(requests.last(), sharedThumbnail());
            setModified(entry(i), now.addSecs(3600 * (i - 10)));
        }
        QVERIFY(!cache.thumbnails({requests[0]}).first().isNull());

        // Room for five and a half entries; the next write goes over it.
        const qint64 limit = QFileInfo(entry(0)).size() * 11 / 2;
        cache.setSizeLimit(limit);
        requests.append(sharedThumbRequest(TestMedia::path("sample.mp4")));
        requests.last().time = 10;
        cache.storeThumbnail(requests.last(), sharedThumbnail());

        qint64 total = 0;
        for (const QFileInfo &file : QDir(cacheDir).entryInfoList(QDir::Files))
            total += file.size();
        QVERIFY(total <= limit);
        QVERIFY(QFile::exists(entry(0)) && QFile::exists(entry(10)));
        int firstKept = 1;
        while (firstKept < 10 && !QFile::exists(entry(firstKept)))
            ++firstKept;
        QVERIFY(firstKept > 1);
        for (int i = firstKept; i < 10; ++i)
            QVERIFY2(QFile::exists(entry(i)), qPrintable(QString::number(i))); // only the least recently used went
    }

    void switchedOffNothingIsWritten()
    {
        IAVFetcher::setCacheDirectory(cacheDir);
        IAVFetcher::setCacheDirectory(QString());
        const QString media = copyOf("sample.mp4", "off.mp4");
        QCOMPARE(answersTo(fetcher.data(), media, {0, 1000}, true, {}).size(), 2);
        QCOMPARE(answersTo(fetcher.data(), media, {}, true, {0, 1000, 100, 2}).size(), 2);
        QCOMPARE(filesIn(cacheDir), QStringList());
    }
};

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    if (argc == 5 && qstrcmp(argv[1], "--store") == 0)
        return storeRepeatedly(QString::fromLocal8Bit(argv[2]), QString::fromLocal8Bit(argv[3]), atoi(argv[4]));
    TstPreviewCache test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_preview_cache.moc"
