#include "FetchAnswers.h"
#include "LogCapture.h"
#include "ScratchFiles.h"
#include "TestMedia.h"

#include "VeloranBaseEntry.h"
#include "VeloranDec/FFDecoder.h"
#include "VeloranDec/FFVobDemuxer.h"
#include "VeloranDec/VobEntryManager.h"

#include <QColor>
#include <QFileInfo>
#include <QThread>
#include <QtTest>

#include <atomic>
#include <cmath>
#include <limits>
#include <memory>
#include <vector>

using namespace Veloran;
using ScratchFiles::read;

namespace {

// The generated media: three segments joined byte for byte, each frame flat, its
// luma giving its number in the segment (32 + 3 n), its chroma the segment.
constexpr int kSegments = 3;
constexpr qint64 kFrameMs = 40;
const qint64 kSegmentMs[kSegments] = {2000, 1600, 2400};
const int kFirstFrame[kSegments] = {0, 50, 90};

// The whole-file index of the frame whose centre shows these values; -1 if unknown.
int frameShowing(double luma, double cb, double cr)
{
    const int chroma[kSegments][2] = {{120, 136}, {136, 120}, {136, 136}};
    for (int i = 0; i < kSegments; ++i) {
        if (std::abs(cb - chroma[i][0]) <= 6 && std::abs(cr - chroma[i][1]) <= 6)
            return kFirstFrame[i] + int(std::lround((luma - 32) / 3.0));
    }
    return -1;
}

int frameShown(const AVFrame *frame)
{
    if (!frame || frame->format != AV_PIX_FMT_YUV420P)
        return -1;
    const int x = frame->width / 2, y = frame->height / 2;
    return frameShowing(frame->data[0][y * frame->linesize[0] + x], frame->data[1][(y / 2) * frame->linesize[1] + x / 2],
                        frame->data[2][(y / 2) * frame->linesize[2] + x / 2]);
}

// The same for a thumbnail, converted back to limited-range BT.601 as the frames were made.
int frameShown(const QImage &image)
{
    if (image.isNull())
        return -1;
    const QColor c = image.pixelColor(image.width() / 2, image.height() / 2);
    const double r = c.red(), g = c.green(), b = c.blue();
    return frameShowing(16 + 0.257 * r + 0.504 * g + 0.098 * b, 128 - 0.148 * r - 0.291 * g + 0.439 * b,
                        128 + 0.439 * r - 0.368 * g - 0.071 * b);
}

QString chaptersPath()
{
    return TestMedia::path(QStringLiteral("vob-chapters.VOB"));
}

QString writeScratch(const QString &name, const QByteArray &bytes)
{
    return ScratchFiles::write(TestMedia::scratchDir(QStringLiteral("vob-") + name) + QLatin1Char('/') + name, bytes);
}

int videoStream(const FFDemuxer &demuxer)
{
    return av_find_best_stream(demuxer.formatCtx().data(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
}

// Reads to the end (bounded, so an endless demuxer fails instead of hanging): per stream the largest step
// back and forward of the decode times in ms; `packets` counts what was read.
QMap<int, QPair<qint64, qint64>> timeSteps(FFDemuxer &demuxer, int *packets = nullptr)
{
    QMap<int, QPair<qint64, qint64>> steps;
    QMap<int, qint64> previous;
    int count = 0;
    for (AVPacketPtr packet; count < 100000 && (packet = demuxer.readPacket()); ++count) {
        const int s = packet->stream_index;
        const qint64 ms = av_rescale_q(packet->dts, demuxer.formatCtx()->streams[s]->time_base, AVRational {1, 1000});
        if (packet->dts != AV_NOPTS_VALUE && previous.contains(s))
            steps[s] = {qMax(steps[s].first, previous[s] - ms), qMax(steps[s].second, ms - previous[s])};
        if (packet->dts != AV_NOPTS_VALUE)
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
    for (bool drained = false; frames.size() < count;) {
        FFDecoder::Received received = decoder.receive();
        if (received.step == FFDecoder::Step::Frame) {
            frames.append(received.frame);
            continue;
        }
        if (received.step == FFDecoder::Step::End || drained)
            break;
        const AVPacketPtr packet = demuxer.readPacket(stream);
        drained = !packet; // a null packet drains the decoder
        decoder.send(packet);
    }
    return frames;
}

// A frame's time in ms after `origin` (a frame of the same stream).
qint64 frameMs(const AVFramePtr &frame, const AVStream *stream, const AVFramePtr &origin)
{
    return av_rescale_q(frame->best_effort_timestamp - origin->best_effort_timestamp, stream->time_base, AVRational {1, 1000});
}

} // namespace

// The chapter-aware VOB demuxer, its index shared by threads, and thumbnails of a joined VOB.
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
        for (int i = 0; i < decoded.size(); ++i) {
            QCOMPARE(frameShown(decoded[i].data()), i);
            // The decoder gives the last frame of a drain no time of its own.
            const qint64 ms = frameMs(decoded[i], stream, decoded.first());
            QVERIFY2(decoded[i]->best_effort_timestamp == AV_NOPTS_VALUE || qAbs(ms - i * kFrameMs) <= kFrameMs,
                     qPrintable(QStringLiteral("frame %1 at %2 ms").arg(i).arg(ms)));
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
        const AVFramePtr origin = decodeFrames(demuxer, decoder, video, 1).value(0);
        QVERIFY(origin);

        for (qint64 target : {300, 1900, 2100, 3500, 3700, 5900, 1200}) {
            byStream ? demuxer.seekByStream(target, video) : demuxer.seek(target);
            const QVector<AVFramePtr> frames = decodeFrames(demuxer, decoder, video, 4);
            QVERIFY2(!frames.isEmpty(), qPrintable(QString::number(target)));
            // On the key frame the target needs: not after it, at most a group of pictures before.
            const qint64 landedMs = frameMs(frames.first(), stream, origin);
            QVERIFY2(landedMs <= target + kFrameMs / 2 && landedMs > target - 13 * kFrameMs,
                     qPrintable(QStringLiteral("seek to %1 landed at %2").arg(target).arg(landedMs)));
            // Every frame shows the picture of the time it carries.
            for (const AVFramePtr &frame : frames) {
                const int shown = frameShown(frame.data());
                QVERIFY2(frame->best_effort_timestamp == AV_NOPTS_VALUE
                             || qAbs(shown * kFrameMs - frameMs(frame, stream, origin)) <= kFrameMs,
                         qPrintable(QStringLiteral("after seek to %1: frame %2").arg(target).arg(shown)));
            }
        }
        // Before the start reads from the start, past the end reads the last group of pictures.
        demuxer.seek(std::numeric_limits<qint64>::min());
        QCOMPARE(frameShown(decodeFrames(demuxer, decoder, video, 1).value(0).data()), 0);
        demuxer.seek(std::numeric_limits<qint64>::max());
        const QVector<AVFramePtr> tail = decodeFrames(demuxer, decoder, video, 100);
        QVERIFY(!tail.isEmpty() && tail.size() <= 13);
        QCOMPARE(frameShown(tail.last().data()), 149);
        // No such stream: nothing happens, reading goes on from where it was.
        demuxer.seek(0);
        demuxer.seekByStream(3000, 99);
        demuxer.seekByStream(3000, -1);
        QCOMPARE(frameShown(decodeFrames(demuxer, decoder, video, 1).value(0).data()), 0);
    }

    void badInputFailsOrReadsPlainly()
    {
        LogCapture capture;
        const QByteArray joined = read(chaptersPath());
        FFVobDemuxer demuxer;
        const QString empty = writeScratch("empty.VOB", QByteArray());
        for (const QString &path : {QString(), TestMedia::path("vob-no-such-file.vob"), empty}) {
            QVERIFY(!demuxer.open(path));
            QVERIFY(VobEntryManager::sharedInstance()->scanVobEntry(path).isEmpty());
            QVERIFY(demuxer.readPacket().isNull());
        }

        // Cut in the middle of the second segment: two chapters, the second shorter.
        const qint64 seg0 = QFileInfo(TestMedia::path("vob-seg0.vob")).size();
        const qint64 seg1 = QFileInfo(TestMedia::path("vob-seg1.vob")).size();
        const QString truncated = writeScratch("truncated.VOB", joined.left(int(seg0 + seg1 / 2 + 777)));
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
        const QString path = writeScratch("copy.VOB", read(chaptersPath()));
        const quint64 scans = index->scanCount();
        QCOMPARE(index->scanVobEntry(path).size(), 3);
        QCOMPARE(index->scanVobEntry(path).size(), 3);
        QCOMPARE(index->scanCount(), scans + 1);
        // A different file under the same name: scanned again.
        QVERIFY(!ScratchFiles::write(path, read(TestMedia::path("vob-seg0.vob"))).isEmpty());
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

    // Pickers open the same file at once: one scan serves all; they read on while the index evicts around them.
    void demuxersOnManyThreadsShareTheIndex()
    {
        const QString path = writeScratch("shared.VOB", read(chaptersPath()));
        VobEntryManager *index = VobEntryManager::sharedInstance();
        const quint64 scans = index->scanCount();
        constexpr int kThreads = 8, kEvicting = 20;
        std::atomic<int> arrived {0}, opened {0};
        QVector<qint64> durations(kThreads, -1);
        QVector<int> packets(kThreads, 0);
        std::vector<std::unique_ptr<QThread>> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back(QThread::create([&, i] {
                for (++arrived; arrived.load() < kThreads;) // start together, so the scans overlap
                    QThread::yieldCurrentThread();
                FFVobDemuxer demuxer; // belongs to this thread
                const bool ok = demuxer.open(path);
                for (++opened; opened.load() < kThreads;)
                    QThread::yieldCurrentThread();
                if (!ok)
                    return;
                durations[i] = demuxer.durationMs();
                demuxer.seek(2500 + 300 * i);
                for (int k = 0; k < kEvicting; ++k)
                    index->scanVobEntry(TestMedia::path(QStringLiteral("vob-missing-%1-%2.vob").arg(i).arg(k)));
                while (demuxer.readPacket() && packets[i] < 100000)
                    ++packets[i];
            }));
            threads.back()->start();
        }
        for (auto &thread : threads)
            QVERIFY(thread->wait(120000));
        QCOMPARE(index->scanCount(), scans + 1 + kThreads * kEvicting);
        for (int i = 0; i < kThreads; ++i) {
            QVERIFY2(qAbs(durations[i] - 6000) <= 120, qPrintable(QString::number(durations[i])));
            QVERIFY(packets[i] > 0);
        }
        QVERIFY(index->entryCount() <= VobEntryManager::kMaxEntries);
    }

    // End to end: the fetch service's pickers read by chapters while the base library's setting asks for it.
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
            // Times count from the first audio, 10 ms before the picture; good to a frame, RGB adds one more.
            const int shown = frameShown(thumbs.value(time));
            QVERIFY2(qAbs(shown - (time - 10) / kFrameMs) <= 2,
                     qPrintable(QStringLiteral("at %1 ms: frame %2").arg(time).arg(shown)));
        }
    }
};

QTEST_GUILESS_MAIN(TstVob)
#include "tst_vob.moc"
