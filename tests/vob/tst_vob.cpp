#include "LogCapture.h"
#include "TestMedia.h"
#include "VobTestKit.h"

#include "VeloranDec/FFDecoder.h"
#include "VeloranDec/FFVobDemuxer.h"
#include "VeloranDec/VobEntryManager.h"

#include <QFileInfo>
#include <QRandomGenerator>
#include <QtTest>

#include <limits>

using namespace Veloran;
using namespace VobTestKit;

namespace {

int videoStream(const FFDemuxer &demuxer)
{
    return av_find_best_stream(demuxer.formatCtx().data(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
}

// Reads to the end (bounded, so that a demuxer that never ends fails instead of
// hanging) and gives per stream the largest step back and forward of the decode
// times, in ms; `packets` counts what was read.
QMap<int, QPair<qint64, qint64>> timeSteps(FFDemuxer &demuxer, int *packets = nullptr)
{
    QMap<int, QPair<qint64, qint64>> steps;
    QMap<int, qint64> previous;
    int count = 0;
    while (count < 100000) {
        const AVPacketPtr packet = demuxer.readPacket();
        if (!packet)
            break;
        ++count;
        if (packet->dts == AV_NOPTS_VALUE)
            continue;
        const int s = packet->stream_index;
        const qint64 ms = av_rescale_q(packet->dts, demuxer.formatCtx()->streams[s]->time_base, AVRational {1, 1000});
        if (previous.contains(s)) {
            steps[s].first = qMax(steps[s].first, previous[s] - ms);
            steps[s].second = qMax(steps[s].second, ms - previous[s]);
        }
        previous[s] = ms;
    }
    if (packets)
        *packets = count;
    return steps;
}

// Decodes video from the demuxer's current position until `count` frames came out.
QVector<AVFramePtr> decodeFrames(FFDemuxer &demuxer, FFDecoder &decoder, int stream, int count)
{
    QVector<AVFramePtr> frames;
    decoder.clearBuffer();
    for (bool ended = false;;) {
        while (frames.size() < count) {
            AVFramePtr frame = decoder.recvFrame();
            if (!frame)
                break;
            frames.append(frame);
        }
        if (frames.size() >= count || ended)
            return frames;
        const AVPacketPtr packet = demuxer.readPacket(stream);
        ended = !packet; // a null packet drains the decoder
        decoder.sendPacket(packet);
    }
}

qint64 frameMs(const AVFramePtr &frame, const AVStream *stream, qint64 originUs)
{
    return (av_rescale_q(frame->best_effort_timestamp, stream->time_base, AV_TIME_BASE_Q) - originUs) / 1000;
}

} // namespace

class TstVob : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void findsTheChaptersOfAJoinedFile()
    {
        const QVector<VobChapter> chapters = VobEntryManager::sharedInstance()->scanVobEntry(chaptersPath());
        QCOMPARE(chapters.size(), kSegments);
        qint64 boundary = 0;
        qint64 sumUs = 0;
        for (int i = 0; i < kSegments; ++i) {
            // Each chapter starts in the first pack of its segment and lasts as long as it.
            QVERIFY2(chapters[i].startPos >= boundary && chapters[i].startPos < boundary + 2048, qPrintable(QString::number(i)));
            QVERIFY2(qAbs(chapters[i].durationMs() - kSegmentMs[i]) <= 60, qPrintable(QString::number(chapters[i].durationMs())));
            QCOMPARE(chapters[i].endPos, i + 1 < kSegments ? chapters[i + 1].startPos : QFileInfo(chaptersPath()).size());
            boundary += QFileInfo(TestMedia::path(QStringLiteral("vob-seg%1.vob").arg(i))).size();
            sumUs += chapters[i].durationUs;
        }
        FFVobDemuxer demuxer;
        QVERIFY(demuxer.open(chaptersPath()));
        QCOMPARE(demuxer.durationMs(), sumUs / 1000);
        QVERIFY(qAbs(demuxer.containerInfo()->durationMs - demuxer.durationMs()) <= 10);

        // A clock that leaps forward marks a chapter as a restart does.
        const QVector<VobChapter> jumped = VobEntryManager::sharedInstance()->scanVobEntry(TestMedia::path("vob-jump.vob"));
        QCOMPARE(jumped.size(), 2);
        QVERIFY(qAbs(jumped[1].durationMs() - 1600) <= 60);
        QVERIFY(jumped[1].firstUs > 19 * 1000 * 1000);
    }

    void readsTimesContinuouslyAcrossChapters_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<int>("frames");
        QTest::newRow("restarts") << QStringLiteral("vob-chapters.VOB") << 150;
        QTest::newRow("jump") << QStringLiteral("vob-jump.vob") << 90;
    }
    void readsTimesContinuouslyAcrossChapters()
    {
        QFETCH(QString, file);
        QFETCH(int, frames);
        // The media really goes back or leaps for a plain demuxer.
        FFDemuxer plain;
        QVERIFY(plain.open(TestMedia::path(file)));
        const auto plainSteps = timeSteps(plain).value(videoStream(plain));
        QVERIFY(plainSteps.first > 1000 || plainSteps.second > 10000);

        // Read by chapters, no stream steps back more than a frame (as the parser
        // already does inside a segment) or leaps more than a few.
        FFVobDemuxer demuxer;
        QVERIFY(demuxer.open(TestMedia::path(file)));
        const auto steps = timeSteps(demuxer);
        QCOMPARE(steps.size(), 2);
        for (auto it = steps.begin(); it != steps.end(); ++it) {
            QVERIFY2(it->first <= kFrameMs, qPrintable(QStringLiteral("stream %1 goes back %2 ms").arg(it.key()).arg(it->first)));
            QVERIFY2(it->second <= 3 * kFrameMs, qPrintable(QStringLiteral("stream %1 leaps %2 ms").arg(it.key()).arg(it->second)));
        }

        // Decoded in order, every frame of every segment comes once, 40 ms apart.
        const int video = videoStream(demuxer);
        const AVStream *stream = demuxer.formatCtx()->streams[video];
        FFDecoder decoder;
        QVERIFY(decoder.open(stream, 1));
        demuxer.seek(0);
        const QVector<AVFramePtr> decoded = decodeFrames(demuxer, decoder, video, frames + 10);
        QCOMPARE(decoded.size(), frames);
        const qint64 originUs = av_rescale_q(decoded.first()->best_effort_timestamp, stream->time_base, AV_TIME_BASE_Q);
        for (int i = 0; i < decoded.size(); ++i) {
            QCOMPARE(globalFrame(identify(decoded[i].data())), i);
            // The decoder gives the last frame of a drain no time of its own.
            if (decoded[i]->best_effort_timestamp != AV_NOPTS_VALUE)
                QVERIFY2(qAbs(frameMs(decoded[i], stream, originUs) - i * kFrameMs) <= kFrameMs,
                         qPrintable(QStringLiteral("frame %1 at %2 ms").arg(i).arg(frameMs(decoded[i], stream, originUs))));
        }
    }

    void seeksIntoEachChapter_data()
    {
        QTest::addColumn<bool>("byStream");
        QTest::newRow("seek") << false;
        QTest::newRow("seekByStream") << true;
    }
    void seeksIntoEachChapter()
    {
        QFETCH(bool, byStream);
        FFVobDemuxer demuxer;
        QVERIFY(demuxer.open(chaptersPath()));
        const int video = videoStream(demuxer);
        const AVStream *stream = demuxer.formatCtx()->streams[video];
        FFDecoder decoder;
        QVERIFY(decoder.open(stream, 1));
        // The file's time origin: the first video frame from the start.
        const QVector<AVFramePtr> first = decodeFrames(demuxer, decoder, video, 1);
        QCOMPARE(first.size(), 1);
        const qint64 originUs = av_rescale_q(first.first()->best_effort_timestamp, stream->time_base, AV_TIME_BASE_Q);

        for (qint64 target : {300, 1900, 2100, 3500, 3700, 5900, 1200}) {
            byStream ? demuxer.seekByStream(target, video) : demuxer.seek(target);
            const QVector<AVFramePtr> frames = decodeFrames(demuxer, decoder, video, 4);
            QVERIFY2(!frames.isEmpty(), qPrintable(QString::number(target)));
            // At the key frame the target needs: not after it, at most a group of pictures before.
            const qint64 landedMs = frameMs(frames.first(), stream, originUs);
            QVERIFY2(landedMs <= target + kFrameMs / 2 && landedMs > target - 13 * kFrameMs,
                     qPrintable(QStringLiteral("seek to %1 landed at %2").arg(target).arg(landedMs)));
            // Every frame shows the picture of the time it carries.
            for (const AVFramePtr &frame : frames) {
                const int shown = globalFrame(identify(frame.data()));
                QVERIFY2(frame->best_effort_timestamp == AV_NOPTS_VALUE
                             || qAbs(shown * kFrameMs - frameMs(frame, stream, originUs)) <= kFrameMs,
                         qPrintable(QStringLiteral("after seek to %1: frame %2").arg(target).arg(shown)));
            }
        }
        // Before the start reads from the start, past the end reads the last group of pictures.
        demuxer.seek(std::numeric_limits<qint64>::min());
        QCOMPARE(globalFrame(identify(decodeFrames(demuxer, decoder, video, 1).value(0).data())), 0);
        demuxer.seek(std::numeric_limits<qint64>::max());
        const QVector<AVFramePtr> tail = decodeFrames(demuxer, decoder, video, 100);
        QVERIFY(!tail.isEmpty() && tail.size() <= 13);
        QCOMPARE(globalFrame(identify(tail.last().data())), 149);
        // No such stream: nothing happens, reading goes on from where it was.
        demuxer.seek(0);
        demuxer.seekByStream(3000, 99);
        demuxer.seekByStream(3000, -1);
        QCOMPARE(globalFrame(identify(decodeFrames(demuxer, decoder, video, 1).value(0).data())), 0);
    }

    void badInputFailsOrReadsPlainly()
    {
        LogCapture capture;
        const QByteArray joined = readAll(chaptersPath());
        FFVobDemuxer demuxer;
        const QString empty = writeScratch("empty", "empty.VOB", QByteArray());
        for (const QString &path : {QString(), TestMedia::path("vob-no-such-file.vob"), empty}) {
            QVERIFY(!demuxer.open(path));
            QVERIFY(VobEntryManager::sharedInstance()->scanVobEntry(path).isEmpty());
            QVERIFY(demuxer.readPacket().isNull());
        }
        QByteArray noise(256 * 1024, Qt::Uninitialized);
        QRandomGenerator(20261122).fillRange(reinterpret_cast<quint32 *>(noise.data()), noise.size() / 4);
        const QString random = writeScratch("random", "random.vob", noise);
        if (demuxer.open(random)) {
            QVERIFY(demuxer.chapters().size() <= 1);
            demuxer.seek(1000);
            int packets = 0;
            timeSteps(demuxer, &packets);
            QVERIFY(packets < 100000);
        }

        // Cut in the middle of the second segment: two chapters, the second shorter.
        const qint64 seg0 = QFileInfo(TestMedia::path("vob-seg0.vob")).size();
        const qint64 seg1 = QFileInfo(TestMedia::path("vob-seg1.vob")).size();
        const QString truncated = writeScratch("truncated", "truncated.VOB", joined.left(int(seg0 + seg1 / 2 + 777)));
        QVERIFY(demuxer.open(truncated));
        QCOMPARE(demuxer.chapters().size(), 2);
        QVERIFY(capture.hasRecord(QStringLiteral("---demux--- vob chapters: 2 in ") + truncated));
        QVERIFY(demuxer.durationMs() > 2300 && demuxer.durationMs() < 3400);
        const auto steps = timeSteps(demuxer).value(videoStream(demuxer));
        QVERIFY(steps.first <= kFrameMs && steps.second <= 3 * kFrameMs);
        demuxer.seek(9000);
        int packets = 0;
        timeSteps(demuxer, &packets);
        QVERIFY(packets < 1000);
    }

    void indexKeepsEntriesUntilTheFileChanges()
    {
        VobEntryManager *index = VobEntryManager::sharedInstance();
        const QString path = writeScratch("index", "copy.VOB", readAll(chaptersPath()));
        const quint64 scans = index->scanCount();
        QCOMPARE(index->scanVobEntry(path).size(), 3);
        QCOMPARE(index->scanVobEntry(path).size(), 3);
        QCOMPARE(index->scanCount(), scans + 1);
        // A different file under the same name: scanned again.
        {
            QFile file(path);
            QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
            file.write(readAll(TestMedia::path("vob-seg0.vob")));
        }
        QCOMPARE(index->scanVobEntry(path).size(), 1);
        QCOMPARE(index->scanCount(), scans + 2);

        // Bounded: the least recently used entries go, a recently used one stays.
        for (int i = 0; i < VobEntryManager::kMaxEntries + 10; ++i) {
            index->scanVobEntry(TestMedia::path(QStringLiteral("vob-missing-%1.vob").arg(i)));
            if (i % 8 == 0)
                index->scanVobEntry(path);
            QVERIFY(index->entryCount() <= VobEntryManager::kMaxEntries);
        }
        const quint64 before = index->scanCount();
        index->scanVobEntry(path);
        QCOMPARE(index->scanCount(), before);
        index->scanVobEntry(TestMedia::path(QStringLiteral("vob-missing-0.vob")));
        QCOMPARE(index->scanCount(), before + 1);
    }
};

QTEST_GUILESS_MAIN(TstVob)
#include "tst_vob.moc"
