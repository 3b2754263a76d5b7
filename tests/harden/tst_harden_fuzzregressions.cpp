#include "FuzzTargets.h"
#include "InMemoryResource.h"
#include "TestMedia.h"

#include "Model/JsonDuplicateKeys.h"
#include "Model/TimelineFiles.h"
#include "VeloranDec/FFDemuxer.h"

#include <QDir>
#include <QFile>
#include <QtTest>

#include <functional>

using namespace Veloran;

class HardenFuzzRegressions : public QObject
{
    Q_OBJECT

private:
    // Runs every file of fuzz/<folder> through `target`; a failing input aborts.
    int replay(const QString &folder, const std::function<void(const uint8_t *, size_t)> &target)
    {
        const QDir dir(QStringLiteral(VR_FUZZ_DIR "/") + folder);
        int count = 0;
        for (const QFileInfo &info : dir.entryInfoList(QDir::Files | QDir::Hidden)) {
            QFile file(info.filePath());
            if (!file.open(QIODevice::ReadOnly))
                continue;
            const QByteArray bytes = file.readAll();
            qInfo().noquote() << "replaying" << info.fileName();
            target(reinterpret_cast<const uint8_t *>(bytes.constData()), static_cast<size_t>(bytes.size()));
            ++count;
        }
        return count;
    }

private slots:
    void initTestCase() { Fuzz::silenceLogs(); }

    void savedInputsStillPass()
    {
        QVERIFY(replay(QStringLiteral("regressions/timeline"), Fuzz::fuzzTimeline) >= 2);
        QVERIFY(replay(QStringLiteral("seeds/timeline"), Fuzz::fuzzTimeline) >= 3);
        QVERIFY(replay(QStringLiteral("seeds/utf8"), Fuzz::fuzzUtf8) >= 7);
        replay(QStringLiteral("regressions/utf8"), Fuzz::fuzzUtf8);
        replay(QStringLiteral("regressions/media"), Fuzz::fuzzMedia);
    }

    // The media fuzzer's input reaches the demuxer as a resource held in memory:
    // it must read exactly the bytes given, through the resource path.
    void inMemoryResourceServesTheBytes()
    {
        QFile sample(TestMedia::path(QStringLiteral("sample.mp4")));
        QVERIFY(sample.open(QIODevice::ReadOnly));
        const QByteArray bytes = sample.readAll();

        {
            const InMemoryResource resource(bytes);
            QVERIFY(resource.isRegistered());
            QVERIFY(resource.path().startsWith(QLatin1Char(':')));
            QFile file(resource.path());
            QVERIFY(file.open(QIODevice::ReadOnly));
            QCOMPARE(file.readAll(), bytes);
            file.close();

            // Same packets as from the disk file.
            FFDemuxer fromMemory;
            FFDemuxer fromDisk;
            QVERIFY(fromMemory.open(resource.path()));
            QVERIFY(fromDisk.open(sample.fileName()));
            int packets = 0;
            for (;;) {
                const AVPacketPtr a = fromMemory.readPacket();
                const AVPacketPtr b = fromDisk.readPacket();
                QCOMPARE(!a, !b);
                if (!a)
                    break;
                QCOMPARE(a->pts, b->pts);
                QCOMPARE(QByteArray(reinterpret_cast<const char *>(a->data), a->size),
                         QByteArray(reinterpret_cast<const char *>(b->data), b->size));
                ++packets;
            }
            QVERIFY(packets > 100);
        }
        // Gone once unregistered; an empty input is a valid (empty) file.
        QVERIFY(!QFile::exists(QStringLiteral(":/vr-mem/input")));
        const InMemoryResource empty{QByteArray()};
        QFile file(empty.path());
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.size(), 0);
        FFDemuxer demuxer;
        QVERIFY(!demuxer.open(empty.path()));
    }

    // Qt's parser leaks what a repeated key replaces, so such documents are refused.
    void repeatedKeysAreRefused()
    {
        QVERIFY(jsonHasDuplicateKeys("{\"a\":[1],\"a\":2}"));
        QVERIFY(jsonHasDuplicateKeys("{\"x\":{\"b\":1,\"c\":{},\"b\":[]}}"));
        QVERIFY(jsonHasDuplicateKeys("{\"a\":1,\"\\u0061\":2}"));
        QVERIFY(jsonHasDuplicateKeys("[{\"k\":\"v\"},{\"k\":1,\"k\":2}]"));
        // Same names in different objects, names as values, escaped quotes: fine.
        QVERIFY(!jsonHasDuplicateKeys("{\"a\":{\"a\":\"a\"},\"b\":[{\"a\":1},{\"a\":2}],\"c\":\"\\\"a\\\"\"}"));
        QVERIFY(!jsonHasDuplicateKeys("{\"a\\\"b\":1,\"a\":2,\"b\":\"a\"}"));
        QVERIFY(!jsonHasDuplicateKeys("{\"a\":"));

        QVERIFY(jsonToVariantMap(QStringLiteral("{\"id\":\"/\",\"s\":[[]],\"s\":\"\"}")).isEmpty());
        QVERIFY(jsonToVariantList(QStringLiteral("[{\"a\":{},\"a\":1}]")).isEmpty());
        QCOMPARE(jsonToVariantMap(QStringLiteral("{\"id\":\"/\",\"s\":[{\"id\":\"a\"},{\"id\":\"b\"}]}")).value("s").toList().size(), 2);
    }
};

QTEST_GUILESS_MAIN(HardenFuzzRegressions)
#include "tst_harden_fuzzregressions.moc"
