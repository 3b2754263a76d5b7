#include "LogCapture.h"
#include "TestMedia.h"
#include "VobTestKit.h"

#include "VeloranDec/FFDecoder.h"
#include "VeloranDec/FFDemuxer.h"
#include "VeloranDec/FFVobDemuxer.h"
#include "VeloranDec/VobEntryManager.h"

#include <QFileInfo>
#include <QRandomGenerator>
#include <QtTest>

#include <limits>

using namespace Veloran;
using namespace VobTestKit;

namespace {

struct PacketTimes
{
    int stream = -1;
    int64_t pts = AV_NOPTS_VALUE;
    int64_t dts = AV_NOPTS_VALUE;
    int size = 0;
    bool operator==(const PacketTimes &o) const { return stream == o.stream && pts == o.pts && dts == o.dts && size == o.size; }
};

// Every packet to the end, bounded so that a demuxer that never ends fails instead of hanging.
QVector<PacketTimes> readAllPackets(FFDemuxer &demuxer, int limit = 200000)
{
    QVector<PacketTimes> packets;
    while (packets.size() < limit) {
        const AVPacketPtr packet = demuxer.readPacket();
        if (!packet)
            break;
        packets.append({packet->stream_index, packet->pts, packet->dts, packet->size});
    }
    return packets;
}

int videoStream(const FFDemuxer &demuxer)
{
    return av_find_best_stream(demuxer.formatCtx().data(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
}

// Reads the decode times of one stream and reports the largest step back and forward.
struct Steps
{
    qint64 largestBackMs = 0;
    qint64 largestGapMs = 0;
    qint64 firstMs = 0;
    qint64 lastMs = 0;
};
Steps stepsOf(const QVector<PacketTimes> &packets, int stream, AVRational timeBase)
{
    Steps steps;
    bool first = true;
    qint64 previous = 0;
    for (const PacketTimes &p : packets) {
        if (p.stream != stream || p.dts == AV_NOPTS_VALUE)
            continue;
        const qint64 ms = av_rescale_q(p.dts, timeBase, AVRational {1, 1000});
        if (first) {
            steps.firstMs = ms;
            first = false;
        } else {
            steps.largestBackMs = qMax(steps.largestBackMs, previous - ms);
            steps.largestGapMs = qMax(steps.largestGapMs, ms - previous);
        }
        previous = ms;
        steps.lastMs = ms;
    }
    return steps;
}

// Decodes video from the demuxer's current position until `count` frames came out.
QVector<AVFramePtr> decodeFrames(FFDemuxer &demuxer, FFDecoder &decoder, int stream, int count)
{
    QVector<AVFramePtr> frames;
    decoder.clearBuffer();
    bool ended = false;
    for (;;) {
        while (frames.size() < count) {
            AVFramePtr frame = decoder.recvFrame();
            if (!frame)
                break;
            frames.append(frame);
        }
        if (frames.size() >= count || ended)
            break;
        const AVPacketPtr packet = demuxer.readPacket(stream);
        ended = !packet; // a null packet drains the decoder
        decoder.sendPacket(packet);
    }
    return frames;
}

} // namespace

class TstVobDemuxer : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(QFileInfo::exists(chaptersPath()), qPrintable(chaptersPath()));
    }

    void findsTheChaptersOfAJoinedFile()
    {
        const QVector<VobChapter> chapters = VobEntryManager::sharedInstance()->scanVobEntry(chaptersPath());
        QCOMPARE(chapters.size(), kSegments);
        qint64 boundary = 0;
        for (int i = 0; i < kSegments; ++i) {
            const VobChapter &chapter = chapters[i];
            // Each chapter starts in the first pack of its segment and lasts as long as it.
            QVERIFY2(chapter.startPos >= boundary && chapter.startPos < boundary + 2048,
                     qPrintable(QStringLiteral("chapter %1 starts at %2, segment at %3").arg(i).arg(chapter.startPos).arg(boundary)));
            QVERIFY2(qAbs(chapter.durationMs() - kSegmentMs[i]) <= 60,
                     qPrintable(QStringLiteral("chapter %1 lasts %2 ms").arg(i).arg(chapter.durationMs())));
            QVERIFY(chapter.bytesPerMs > 0);
            boundary += QFileInfo(mediaPath(QStringLiteral("vob-seg%1.vob").arg(i))).size();
            if (i + 1 < kSegments)
                QCOMPARE(chapter.endPos, chapters[i + 1].startPos);
        }
        QCOMPARE(chapters.last().endPos, QFileInfo(chaptersPath()).size());

        FFVobDemuxer demuxer;
        QVERIFY(demuxer.open(chaptersPath()));
        qint64 sum = 0;
        for (const VobChapter &chapter : chapters)
            sum += chapter.durationUs;
        QCOMPARE(demuxer.durationMs(), sum / 1000);
        QVERIFY(qAbs(demuxer.durationMs() - 6000) <= 120);
        // The descriptions of the file tell the same length (each rounding its own way).
        QVERIFY(qAbs(demuxer.containerInfo()->durationMs - demuxer.durationMs()) <= 10);
        const QSharedPointer<CVideoStreamInfo> videoInfo = demuxer.videoStreamInfo(videoStream(demuxer));
        QVERIFY(videoInfo);
        QVERIFY(qAbs(videoInfo->durationMs - demuxer.durationMs()) <= 10);
        demuxer.close();
        QVERIFY(demuxer.chapters().isEmpty());
        QVERIFY(demuxer.readPacket().isNull());

        // A clock that leaps forward marks a chapter as a restart does.
        const QVector<VobChapter> jumped = VobEntryManager::sharedInstance()->scanVobEntry(mediaPath("vob-jump.vob"));
        QCOMPARE(jumped.size(), 2);
        QVERIFY(qAbs(jumped[0].durationMs() - 2000) <= 60);
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
        QVERIFY(plain.open(mediaPath(file)));
        const int plainVideo = videoStream(plain);
        const Steps plainSteps = stepsOf(readAllPackets(plain), plainVideo, plain.formatCtx()->streams[plainVideo]->time_base);
        QVERIFY(plainSteps.largestBackMs > 1000 || plainSteps.largestGapMs > 10000);

        // FFmpeg's parser already steps back a little inside some segments; joined,
        // the file may do no worse than its parts.
        qint64 allowedBackMs = 0;
        for (int i = 0; i < kSegments; ++i) {
            FFDemuxer part;
            QVERIFY(part.open(mediaPath(QStringLiteral("vob-seg%1.vob").arg(i))));
            const QVector<PacketTimes> packets = readAllPackets(part);
            for (unsigned s = 0; s < part.formatCtx()->nb_streams; ++s)
                allowedBackMs = qMax(allowedBackMs, stepsOf(packets, int(s), part.formatCtx()->streams[s]->time_base).largestBackMs);
        }
        QVERIFY(allowedBackMs <= kFrameMs);

        FFVobDemuxer demuxer;
        QVERIFY(demuxer.open(mediaPath(file)));
        const AVFormatContextPtr ctx = demuxer.formatCtx();
        const QVector<PacketTimes> packets = readAllPackets(demuxer);
        for (unsigned s = 0; s < ctx->nb_streams; ++s) {
            const Steps steps = stepsOf(packets, int(s), ctx->streams[s]->time_base);
            QVERIFY2(steps.largestBackMs <= allowedBackMs,
                     qPrintable(QStringLiteral("stream %1 goes back %2 ms").arg(s).arg(steps.largestBackMs)));
            QVERIFY2(steps.largestGapMs <= 3 * kFrameMs, qPrintable(QStringLiteral("stream %1 leaps %2 ms").arg(s).arg(steps.largestGapMs)));
            QVERIFY(qAbs(steps.lastMs - steps.firstMs - frames * kFrameMs) <= 4 * kFrameMs);
        }

        // Decoded in order, every frame of every segment comes once, 40 ms apart.
        const int video = videoStream(demuxer);
        const AVStream *stream = ctx->streams[video];
        FFDecoder decoder;
        QVERIFY(decoder.open(stream, 1));
        demuxer.seek(0);
        const QVector<AVFramePtr> decoded = decodeFrames(demuxer, decoder, video, frames + 10);
        QCOMPARE(decoded.size(), frames);
        const qint64 originUs = av_rescale_q(decoded.first()->best_effort_timestamp, stream->time_base, AV_TIME_BASE_Q);
        for (int i = 0; i < decoded.size(); ++i) {
            const FrameId id = identify(decoded[i].data());
            const int expectedSegment = file.startsWith("vob-jump") ? (i < 50 ? 0 : 1) : segmentAtMs(i * kFrameMs);
            QCOMPARE(id.segment, expectedSegment);
            QCOMPARE(globalFrame(id), i);
            // The decoder gives the last frame of a drain no time of its own.
            if (decoded[i]->best_effort_timestamp == AV_NOPTS_VALUE && i == decoded.size() - 1)
                continue;
            QVERIFY2(qAbs(frameMs(decoded[i].data(), stream, originUs) - i * kFrameMs) <= kFrameMs,
                     qPrintable(QStringLiteral("frame %1 at %2 ms").arg(i).arg(frameMs(decoded[i].data(), stream, originUs))));
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

        const qint64 gopMs = 12 * kFrameMs;
        for (qint64 target : {300, 1200, 1900, 2100, 2700, 3500, 3700, 4400, 5200, 5900}) {
            if (byStream)
                demuxer.seekByStream(target, video);
            else
                demuxer.seek(target);
            const QVector<AVFramePtr> frames = decodeFrames(demuxer, decoder, video, 4);
            QVERIFY2(!frames.isEmpty(), qPrintable(QString::number(target)));
            const qint64 landedMs = frameMs(frames.first().data(), stream, originUs);
            // At the key frame the target needs: not after it, at most a group of pictures before.
            QVERIFY2(landedMs <= target + kFrameMs / 2 && landedMs > target - gopMs - kFrameMs,
                     qPrintable(QStringLiteral("seek to %1 landed at %2").arg(target).arg(landedMs)));
            // Every frame shows the picture of the time it carries.
            for (const AVFramePtr &frame : frames) {
                if (frame->best_effort_timestamp == AV_NOPTS_VALUE)
                    continue;
                const qint64 ms = frameMs(frame.data(), stream, originUs);
                const int shown = globalFrame(identify(frame.data()));
                QVERIFY2(qAbs(shown * kFrameMs - ms) <= kFrameMs,
                         qPrintable(QStringLiteral("after seek to %1: frame %2 at %3 ms").arg(target).arg(shown).arg(ms)));
            }
        }

        // Out of range: before the start reads from the start, past the end reads the last group of pictures.
        for (qint64 before : {qint64(-500), std::numeric_limits<qint64>::min()}) {
            demuxer.seek(before);
            const QVector<AVFramePtr> start = decodeFrames(demuxer, decoder, video, 1);
            QCOMPARE(start.size(), 1);
            QCOMPARE(globalFrame(identify(start.first().data())), 0);
        }
        for (qint64 after : {qint64(60000), std::numeric_limits<qint64>::max()}) {
            demuxer.seek(after);
            const QVector<AVFramePtr> tail = decodeFrames(demuxer, decoder, video, 100);
            QVERIFY(!tail.isEmpty() && tail.size() <= 13);
            QCOMPARE(globalFrame(identify(tail.last().data())), 149);
        }
        // No such stream: nothing happens, reading goes on from where it was.
        demuxer.seek(0);
        demuxer.seekByStream(3000, 99);
        demuxer.seekByStream(3000, -1);
        const QVector<AVFramePtr> still = decodeFrames(demuxer, decoder, video, 1);
        QCOMPARE(still.size(), 1);
        QCOMPARE(globalFrame(identify(still.first().data())), 0);
    }

    void singleChapterReadsAsPlain()
    {
        const QString path = mediaPath("vob-seg0.vob");
        QCOMPARE(VobEntryManager::sharedInstance()->scanVobEntry(path).size(), 1);
        FFDemuxer plain;
        FFVobDemuxer vob;
        QVERIFY(plain.open(path));
        QVERIFY(vob.open(path));
        QCOMPARE(vob.durationMs(), plain.durationMs());
        QCOMPARE(readAllPackets(vob), readAllPackets(plain));
        for (qint64 ms : {0, 700, 1500}) {
            plain.seek(ms);
            vob.seek(ms);
            QVector<PacketTimes> a, b;
            for (int i = 0; i < 20; ++i) {
                const AVPacketPtr p = plain.readPacket();
                const AVPacketPtr q = vob.readPacket();
                QCOMPARE(p.isNull(), q.isNull());
                if (!p)
                    break;
                a.append({p->stream_index, p->pts, p->dts, p->size});
                b.append({q->stream_index, q->pts, q->dts, q->size});
            }
            QCOMPARE(b, a);
        }
    }

    void badInputFailsOrReadsPlainly()
    {
        LogCapture capture;
        const QByteArray joined = readAll(chaptersPath());
        QVERIFY(!joined.isEmpty());

        FFVobDemuxer demuxer;
        QVERIFY(!demuxer.open(QString()));
        QVERIFY(!demuxer.open(TestMedia::path("vob-no-such-file.vob")));
        QVERIFY(VobEntryManager::sharedInstance()->scanVobEntry(TestMedia::path("vob-no-such-file.vob")).isEmpty());

        const QString empty = writeScratch("empty", "empty.VOB", QByteArray());
        QVERIFY(!demuxer.open(empty));
        QVERIFY(VobEntryManager::sharedInstance()->scanVobEntry(empty).isEmpty());
        QVERIFY(demuxer.readPacket().isNull());
        demuxer.seek(1000); // closed: nothing happens

        QByteArray noise(256 * 1024, Qt::Uninitialized);
        QRandomGenerator generator(20261122);
        generator.fillRange(reinterpret_cast<quint32 *>(noise.data()), noise.size() / 4);
        const QString random = writeScratch("random", "random.vob", noise);
        if (demuxer.open(random)) {
            QVERIFY(VobEntryManager::sharedInstance()->scanVobEntry(random).size() <= 1);
            QVERIFY(demuxer.durationMs() >= 0);
            demuxer.seek(1000);
            QVERIFY(readAllPackets(demuxer).size() < 200000);
        }

        // Cut in the middle of the second segment: two chapters, the second shorter.
        const qint64 seg0 = QFileInfo(mediaPath("vob-seg0.vob")).size();
        const qint64 seg1 = QFileInfo(mediaPath("vob-seg1.vob")).size();
        const QString truncated = writeScratch("truncated", "truncated.VOB", joined.left(int(seg0 + seg1 / 2 + 777)));
        QVERIFY(demuxer.open(truncated));
        const QVector<VobChapter> chapters = demuxer.chapters();
        QCOMPARE(chapters.size(), 2);
        QVERIFY(capture.hasRecord(QStringLiteral("---demux--- vob chapters: 2 in ") + truncated));
        QVERIFY(chapters[1].durationMs() > 300 && chapters[1].durationMs() < 1400);
        QVERIFY(demuxer.durationMs() > 2300 && demuxer.durationMs() < 3400);
        const int video = videoStream(demuxer);
        const AVFormatContextPtr ctx = demuxer.formatCtx();
        const Steps steps = stepsOf(readAllPackets(demuxer), video, ctx->streams[video]->time_base);
        QVERIFY(steps.largestBackMs <= kFrameMs);
        QVERIFY(steps.largestGapMs <= 3 * kFrameMs);
        for (qint64 ms : {2500, 3300, 9000}) {
            demuxer.seek(ms);
            QVERIFY(readAllPackets(demuxer).size() < 1000);
        }

        // Cut inside the first pack: nothing to demux, or one chapter read plainly.
        const QString stub = writeScratch("stub", "stub.VOB", joined.left(1500));
        if (demuxer.open(stub)) {
            QVERIFY(demuxer.chapters().size() <= 1);
            QVERIFY(readAllPackets(demuxer).size() < 100);
        }
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
            file.write(readAll(mediaPath("vob-seg0.vob")));
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

QTEST_GUILESS_MAIN(TstVobDemuxer)
#include "tst_vob_demuxer.moc"
