#include "LogCapture.h"
#include "TestMedia.h"

#include "VeloranBaseEntry.h"
#include "VeloranDec/FFDemuxer.h"
#include "VeloranDec/FFVobDemuxer.h"
#include "VeloranDec/QrcIOCallbacks.h"

#include <QFile>
#include <QRandomGenerator>
#include <QResource>
#include <QtTest>

#include <cstdio>

using namespace Veloran;

namespace {

struct Tally
{
    int packets = 0;
    qint64 bytes = 0;
    QMap<int, int> perStream;
};

Tally readToEnd(FFDemuxer &demuxer)
{
    Tally tally;
    while (AVPacketPtr packet = demuxer.readPacket()) {
        ++tally.packets;
        tally.bytes += packet->size;
        ++tally.perStream[packet->stream_index];
    }
    return tally;
}

int streamOfType(const FFDemuxer &demuxer, AVMediaType type)
{
    return av_find_best_stream(demuxer.formatCtx().data(), type, -1, -1, nullptr, 0);
}

qint64 packetMs(const FFDemuxer &demuxer, const AVPacketPtr &packet)
{
    const AVStream *stream = demuxer.formatCtx()->streams[packet->stream_index];
    return av_rescale_q(packet->pts, stream->time_base, AVRational {1, 1000});
}

// Media time in ms of the next packet of `stream` after whatever seek came before.
qint64 nextPacketMs(FFDemuxer &demuxer, int stream)
{
    const AVPacketPtr packet = demuxer.readPacket(stream);
    return packet ? packetMs(demuxer, packet) : -1;
}

QString writeScratch(const QString &name, const QByteArray &bytes)
{
    const QString path = TestMedia::scratchDir(QStringLiteral("media-demuxer-") + name) + QLatin1Char('/') + name;
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        return {};
    return path;
}

} // namespace

class TstMediaDemuxer : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void readsEveryPacketOfAPlainFile()
    {
        LogCapture capture;
        FFDemuxer demuxer;
        QVERIFY(demuxer.formatCtx().isNull());
        QVERIFY(demuxer.readPacket().isNull());
        QVERIFY(demuxer.open(TestMedia::path("sample.mp4")));
        QCOMPARE(demuxer.path(), TestMedia::path("sample.mp4"));
        QVERIFY(demuxer.durationMs() >= 3990 && demuxer.durationMs() <= 4100);

        const int video = streamOfType(demuxer, AVMEDIA_TYPE_VIDEO);
        const int audio = streamOfType(demuxer, AVMEDIA_TYPE_AUDIO);
        QVERIFY(video >= 0 && audio >= 0);
        const Tally tally = readToEnd(demuxer);
        QCOMPARE(tally.perStream.value(video), 100); // 4 s at 25 fps
        QVERIFY(tally.perStream.value(audio) > 180);
        QVERIFY(demuxer.readPacket().isNull()); // stays at the end

        // One stream at a time: the others are read and dropped.
        demuxer.seek(0);
        int videoPackets = 0;
        while (AVPacketPtr packet = demuxer.readPacket(video)) {
            QCOMPARE(packet->stream_index, video);
            ++videoPackets;
        }
        QCOMPARE(videoPackets, 100);
        demuxer.seek(0);
        QVERIFY(demuxer.readPacket(99).isNull());

        demuxer.close();
        QVERIFY(demuxer.formatCtx().isNull());
        QVERIFY(demuxer.readPacket().isNull());
        QCOMPARE(demuxer.path(), TestMedia::path("sample.mp4"));
        QVERIFY(capture.records().isEmpty());
    }

    void readsMediaInsideQtResources()
    {
        const QString rcc = TestMedia::path("media-resource.rcc");
        QVERIFY(QResource::registerResource(rcc));

        FFDemuxer plain;
        QVERIFY(plain.open(TestMedia::path("sample.mp4")));
        const Tally expected = readToEnd(plain);

        FFDemuxer demuxer;
        QVERIFY(demuxer.open(QStringLiteral(":/media/clip.mp4")));
        const Tally fromResource = readToEnd(demuxer);
        QCOMPARE(fromResource.packets, expected.packets);
        QCOMPARE(fromResource.bytes, expected.bytes);
        QCOMPARE(fromResource.perStream, expected.perStream);

        // Seeking goes through the seek callback.
        const int video = streamOfType(demuxer, AVMEDIA_TYPE_VIDEO);
        demuxer.seek(2500);
        QCOMPARE(nextPacketMs(demuxer, video), qint64(2000));

        // Opening again replaces the resource file while the old input is still open.
        QVERIFY(demuxer.open(QStringLiteral(":/media/clip.mp4")));
        QCOMPARE(readToEnd(demuxer).packets, expected.packets);

        LogCapture capture;
        QVERIFY(!demuxer.open(QStringLiteral(":/media/nothing-here.mp4")));
        QCOMPARE(capture.recordTexts(), QStringList {QStringLiteral("mQrcFile->open failed.")});
        QVERIFY(demuxer.formatCtx().isNull());
        QVERIFY(demuxer.readPacket().isNull());

        QVERIFY(QResource::unregisterResource(rcc));
    }

    void resourceCallbacksFollowFileSemantics()
    {
        uint8_t buffer[16] = {0};
        QCOMPARE(qrc_read_packet(nullptr, buffer, sizeof(buffer)), -1);
        QCOMPARE(qrc_seek(nullptr, 0, SEEK_SET), int64_t(-1));

        QFile file(TestMedia::path("sine.wav"));
        QVERIFY(file.open(QIODevice::ReadOnly));
        const int64_t size = file.size();
        QCOMPARE(qrc_read_packet(&file, buffer, 4), 4);
        QCOMPARE(QByteArray(reinterpret_cast<const char *>(buffer), 4), QByteArray("RIFF"));
        QCOMPARE(qrc_seek(&file, 8, SEEK_SET), int64_t(8));
        QCOMPARE(qrc_seek(&file, 4, SEEK_CUR), int64_t(12));
        QCOMPARE(qrc_seek(&file, -10, SEEK_END), size - 10);
        QCOMPARE(qrc_read_packet(&file, buffer, sizeof(buffer)), 10);
        QCOMPARE(qrc_read_packet(&file, buffer, sizeof(buffer)), -1); // end of file
        // The size is never reported this way, forced seeks are refused.
        QCOMPARE(qrc_seek(&file, 0, AVSEEK_SIZE), int64_t(-1));
        QCOMPARE(qrc_seek(&file, 0, SEEK_SET | AVSEEK_FORCE), int64_t(-1));
        QCOMPARE(qrc_seek(&file, -1, SEEK_SET), int64_t(-1));
    }

    void timeSeeksLandOnTheKeyframeBefore()
    {
        LogCapture capture;
        FFDemuxer demuxer;
        QVERIFY(demuxer.open(TestMedia::path("sample.mp4"))); // a keyframe every second
        const int video = streamOfType(demuxer, AVMEDIA_TYPE_VIDEO);

        demuxer.seek(2500);
        QCOMPARE(nextPacketMs(demuxer, video), qint64(2000));
        demuxer.seekByStream(3999, video);
        QCOMPARE(nextPacketMs(demuxer, video), qint64(3000));
        demuxer.seek(0);
        QCOMPARE(nextPacketMs(demuxer, video), qint64(0));
        demuxer.seekByStream(1000, video);
        const AVPacketPtr packet = demuxer.readPacket(video);
        QCOMPARE(packetMs(demuxer, packet), qint64(1000));
        QVERIFY(packet->flags & AV_PKT_FLAG_KEY);
        QVERIFY(capture.records().isEmpty());
    }

    void seeksCountFromTheContainerStart()
    {
        FFDemuxer demuxer;
        QVERIFY(demuxer.open(TestMedia::path("media-start1400.mp4"))); // keyframes every 200 ms
        QCOMPARE(demuxer.formatCtx()->start_time, int64_t(1400000));
        const int video = streamOfType(demuxer, AVMEDIA_TYPE_VIDEO);

        // 0 is not shifted and still finds the first packet at 1.4 s.
        demuxer.seek(0);
        QCOMPARE(nextPacketMs(demuxer, video), qint64(1400));
        demuxer.seek(1);
        QCOMPARE(nextPacketMs(demuxer, video), qint64(1400));
        // One second of media is 2.4 s of container time; unshifted it would be 1.4 s.
        demuxer.seek(1000);
        QCOMPARE(nextPacketMs(demuxer, video), qint64(2400));
        demuxer.seekByStream(2100, video);
        QCOMPARE(nextPacketMs(demuxer, video), qint64(3400));
        demuxer.seekByStream(0, video);
        QCOMPARE(nextPacketMs(demuxer, video), qint64(1400));
    }

    void streamSeeksWithBadIndicesDoNothing()
    {
        LogCapture capture;
        FFDemuxer demuxer;
        QVERIFY(demuxer.open(TestMedia::path("sample.mp4")));
        const int video = streamOfType(demuxer, AVMEDIA_TYPE_VIDEO);
        const int streams = static_cast<int>(demuxer.formatCtx()->nb_streams);
        // The packet that follows the 51st, in decode order (B-frames reorder times).
        FFDemuxer reference;
        QVERIFY(reference.open(TestMedia::path("sample.mp4")));
        for (int i = 0; i < 51; ++i)
            QVERIFY(reference.readPacket(video));
        const qint64 following = nextPacketMs(reference, video);

        for (int i = 0; i < 51; ++i)
            QVERIFY(demuxer.readPacket(video));
        demuxer.seekByStream(0, -1);
        demuxer.seekByStream(0, streams);
        QCOMPARE(nextPacketMs(demuxer, video), following);
        demuxer.seekByStream(0, video);
        QCOMPARE(nextPacketMs(demuxer, video), qint64(0));
        QVERIFY(capture.records().isEmpty());

        FFDemuxer closed;
        closed.seekByStream(0, 0);
        closed.seek(100);
        closed.seekByFilePos(0);
        QVERIFY(closed.readPacket().isNull());
        QCOMPARE(closed.durationMs(), qint64(0));
    }

    void failedSeeksAreLoggedAndLeaveTheDemuxerUsable()
    {
        FFDemuxer demuxer;
        QVERIFY(demuxer.open(TestMedia::path("media-cover.mp3")));
        const int audio = streamOfType(demuxer, AVMEDIA_TYPE_AUDIO);
        const int cover = streamOfType(demuxer, AVMEDIA_TYPE_VIDEO);

        LogCapture capture;
        demuxer.seek(-5000); // MP3 refuses times before its start
        QCOMPARE(capture.recordTexts(), QStringList {QStringLiteral("---player--- av_seek_frame: -1: Operation not permitted")});
        QVERIFY(capture.records().first().function().contains(QStringLiteral("FFDemuxer::seek(")));
        QVERIFY(demuxer.readPacket(audio));

        // The cover picture cannot be seeked in; the fallback over all streams runs.
        capture.clear();
        demuxer.seekByStream(500, cover);
        QCOMPARE(capture.recordTexts(),
                 QStringList {QStringLiteral("---player--- seekByStream streamIndex: %1,res : -1: Operation not permitted").arg(cover)});
        QVERIFY(capture.records().first().function().contains(QStringLiteral("FFDemuxer::seekByStream(")));
        QVERIFY(demuxer.readPacket(audio));

        capture.clear();
        demuxer.seek(0);
        QVERIFY(demuxer.readPacket(audio));
        QVERIFY(capture.records().isEmpty());
    }

    void seeksByBytePosition()
    {
        LogCapture capture;
        FFDemuxer wav;
        QVERIFY(wav.open(TestMedia::path("sine.wav")));
        readToEnd(wav);
        wav.seekByFilePos(4096);
        const AVPacketPtr packet = wav.readPacket();
        QVERIFY(packet);
        QVERIFY(packet->pos >= 4096);
        QVERIFY(capture.records().isEmpty());

        // MP4 has no byte seeking; the demuxer logs and stays usable.
        FFDemuxer mp4;
        QVERIFY(mp4.open(TestMedia::path("sample.mp4")));
        mp4.seekByFilePos(1000);
        QCOMPARE(capture.records().size(), 1);
        QVERIFY(capture.records().first().text().startsWith(QStringLiteral("---player--- seekByFilePos av_seek_frame: ")));
        QVERIFY(capture.records().first().function().contains(QStringLiteral("FFDemuxer::seekByFilePos")));
        QCOMPARE(capture.records().first().sourcePath(), QStringLiteral("VeloranDec/FFDemuxer"));
        mp4.seek(0);
        QVERIFY(mp4.readPacket());
    }

    void unknownDurationReadsAsZero()
    {
        FFDemuxer demuxer;
        QVERIFY(demuxer.open(TestMedia::path("media-noduration.mkv")));
        QCOMPARE(demuxer.formatCtx()->duration, int64_t(AV_NOPTS_VALUE));
        QCOMPARE(demuxer.durationMs(), qint64(0));
        QVERIFY(readToEnd(demuxer).packets == 25);
    }

    void badInputsFailWithTheirLogLines_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<qint64>("size");

        QTest::newRow("missing") << TestMedia::path("media-does-not-exist.mp4") << qint64(0);
        QTest::newRow("zero bytes") << writeScratch("empty.mp4", {}) << qint64(0);

        QFile sample(TestMedia::path("sample.mp4"));
        QVERIFY(sample.open(QIODevice::ReadOnly));
        QTest::newRow("truncated") << writeScratch("truncated.mp4", sample.read(4096)) << qint64(4096);

        QByteArray noise(65536, Qt::Uninitialized);
        QRandomGenerator random(20261122);
        for (char &byte : noise)
            byte = static_cast<char>(random.bounded(256));
        QTest::newRow("random bytes") << writeScratch("noise.mov", noise) << qint64(noise.size());

        const QByteArray text = "This is a plain text note, not a movie.\n";
        QTest::newRow("text with media suffix") << writeScratch("note.mp4", text) << qint64(text.size());
    }

    void badInputsFailWithTheirLogLines()
    {
        QFETCH(QString, path);
        QFETCH(qint64, size);
        QVERIFY(!path.isEmpty());

        LogCapture capture;
        FFDemuxer demuxer;
        QVERIFY(!demuxer.open(path));
        const QStringList texts = capture.recordTexts();
        QCOMPARE(texts.size(), 2);
        QVERIFY2(texts.at(0).startsWith(QStringLiteral("---demux--- avformat_open_input: -")), qPrintable(texts.at(0)));
        QCOMPARE(texts.at(1), QStringLiteral("---demux--- Could not open the file . fileSize :%1").arg(size));
        QVERIFY(demuxer.formatCtx().isNull());
        QVERIFY(demuxer.readPacket().isNull());
        QVERIFY(demuxer.path().isEmpty());
    }

    void emptyPathFailsSilently()
    {
        LogCapture capture;
        FFDemuxer demuxer;
        QVERIFY(!demuxer.open(QString()));
        QVERIFY(capture.records().isEmpty());
        QVERIFY(capture.messages().isEmpty());

        // A failed open leaves a previously opened demuxer closed.
        QVERIFY(demuxer.open(TestMedia::path("sample.mp4")));
        QVERIFY(!demuxer.open(TestMedia::path("media-does-not-exist.mp4")));
        QVERIFY(demuxer.formatCtx().isNull());
    }

    void factoryChoosesTheVobDemuxerOnlyWhenAsked()
    {
        PropertyMap *properties = VeloranBaseEntry()->properties();
        properties->remove(QStringLiteral("kVob_DeMux_Enabled"));
        const QString vob = QStringLiteral("/media/dvd/VTS_01_1.VOB");

        QSharedPointer<FFDemuxer> demuxer = FFDemuxer::createDemuxer(vob, false);
        QVERIFY(demuxer && !qobject_cast<FFVobDemuxer *>(demuxer.data()));
        QVERIFY(qobject_cast<FFVobDemuxer *>(FFDemuxer::createDemuxer(vob, true).data()));

        properties->setValue(QStringLiteral("kVob_DeMux_Enabled"), true);
        QVERIFY(qobject_cast<FFVobDemuxer *>(FFDemuxer::createDemuxer(vob, false).data()));
        QVERIFY(qobject_cast<FFVobDemuxer *>(FFDemuxer::createDemuxer(QStringLiteral("a.vob"), false).data()));
        QVERIFY(!qobject_cast<FFVobDemuxer *>(FFDemuxer::createDemuxer(QStringLiteral("a.mp4"), false).data()));
        properties->setValue(QStringLiteral("kVob_DeMux_Enabled"), false);
        QVERIFY(!qobject_cast<FFVobDemuxer *>(FFDemuxer::createDemuxer(vob, false).data()));
        properties->remove(QStringLiteral("kVob_DeMux_Enabled"));

        // Unopened, parentless, and weak pointers to it work.
        QVERIFY(demuxer->formatCtx().isNull());
        QVERIFY(demuxer->parent() == nullptr);
        QWeakPointer<FFDemuxer> weak = demuxer;
        demuxer.reset();
        QVERIFY(weak.isNull());

        // Until chapters are read, the VOB demuxer reads any file as the plain one does.
        QSharedPointer<FFDemuxer> forced = FFDemuxer::createDemuxer(TestMedia::path("sample.mp4"), true);
        QVERIFY(forced->open(TestMedia::path("sample.mp4")));
        const int video = streamOfType(*forced, AVMEDIA_TYPE_VIDEO);
        forced->seek(2500);
        QCOMPARE(nextPacketMs(*forced, video), qint64(2000));
        QVERIFY(forced->durationMs() >= 3990 && forced->durationMs() <= 4100);
        QCOMPARE(readToEnd(*forced).perStream.value(video), 49); // after the packet at 2 s
    }
};

QTEST_GUILESS_MAIN(TstMediaDemuxer)
#include "tst_media_demuxer.moc"
