#include "LogCapture.h"
#include "TestMedia.h"

#include "FFmpegJoint.h"
#include "VeloranBaseEntry.h"

#include <QFile>
#include <QTemporaryFile>
#include <QThread>
#include <QtTest>

#include <atomic>
#include <cstdio>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

extern "C" {
#include <libavutil/mem.h>
}

using namespace Veloran;

namespace {

// An in-memory file for FFmpeg's custom I/O.
struct MemoryFile
{
    QByteArray data;
    qint64 position = 0;

    static int read(void *opaque, uint8_t *buffer, int size)
    {
        auto *file = static_cast<MemoryFile *>(opaque);
        const qint64 left = file->data.size() - file->position;
        if (left <= 0)
            return AVERROR_EOF;
        const int count = int(qMin<qint64>(size, left));
        memcpy(buffer, file->data.constData() + file->position, size_t(count));
        file->position += count;
        return count;
    }

    static int64_t seek(void *opaque, int64_t offset, int whence)
    {
        auto *file = static_cast<MemoryFile *>(opaque);
        if (whence == AVSEEK_SIZE)
            return file->data.size();
        const int64_t base = (whence & ~AVSEEK_FORCE) == SEEK_CUR ? file->position
                             : (whence & ~AVSEEK_FORCE) == SEEK_END ? file->data.size() : 0;
        if (base + offset < 0 || base + offset > file->data.size())
            return -1;
        file->position = base + offset;
        return file->position;
    }

    AVIOContext *makeContext()
    {
        const int size = 4096;
        auto *buffer = static_cast<unsigned char *>(av_malloc(size));
        return avio_alloc_context(buffer, size, 0, this, &MemoryFile::read, nullptr, &MemoryFile::seek);
    }
};

// Everything written to stderr while `fn` runs.
template <typename Fn>
QByteArray captureStderr(Fn fn)
{
    QTemporaryFile file;
    if (!file.open())
        return "cannot open capture file";
    std::fflush(stderr);
    const int saved = dup(STDERR_FILENO);
    dup2(file.handle(), STDERR_FILENO);
    fn();
    std::fflush(stderr);
    dup2(saved, STDERR_FILENO);
    close(saved);
    file.seek(0);
    return file.readAll();
}

} // namespace

class TstPlatform : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void recordsCarryTextOriginAndFunction()
    {
        LogCapture capture;
        const int line = __LINE__ + 1;
        VR_LOG << "count: " << 3 << ", name " << QStringLiteral("x") << " ratio " << 2.5 << " " << true;
        const QList<Record> records = capture.records();
        QCOMPARE(records.size(), 1);
        QCOMPARE(records.first().text(), QStringLiteral("count: 3, name x ratio 2.5 true"));
        QCOMPARE(records.first().sourcePath(), QStringLiteral("tests/common/tst_platform"));
        QCOMPARE(records.first().function(), QStringLiteral("void TstPlatform::recordsCarryTextOriginAndFunction()"));
        QCOMPARE(records.first().line(), line);
        QVERIFY(capture.messages().isEmpty()); // tagged lines do not go through qDebug
    }

    void sourcePathsAreCutToTheProject()
    {
        QCOMPARE(Record::projectRelativePath("VeloranDec/FFDemuxer.cpp"), QStringLiteral("VeloranDec/FFDemuxer"));
        QCOMPARE(Record::projectRelativePath("./Common/Helpers.cpp"), QStringLiteral("Common/Helpers"));
        QCOMPARE(Record::projectRelativePath("/home/dev/src/vr/Projects/Fetcher/AVPickerManager.cpp"),
                 QStringLiteral("Projects/Fetcher/AVPickerManager"));
        // A checkout below a folder named like a project folder.
        QCOMPARE(Record::projectRelativePath("/home/dev/Projects/vr/VeloranDec/Adapter/FFVideoAdapter.cpp"),
                 QStringLiteral("VeloranDec/Adapter/FFVideoAdapter"));
        QCOMPARE(Record::projectRelativePath("C:\\build\\vr\\Model\\NLMapNode.cpp"), QStringLiteral("C:/build/vr/Model/NLMapNode"));
        QCOMPARE(Record::projectRelativePath("Model/v1.2/Notes"), QStringLiteral("Model/v1.2/Notes"));
        QCOMPARE(Record::projectRelativePath("Common/Stopwatch.h"), QStringLiteral("Common/Stopwatch"));
        QCOMPARE(Record::projectRelativePath(nullptr), QString());
    }

    void loggerSinkCanBeReplacedAndRestored()
    {
        Logger *logger = VeloranBaseEntry()->logger();
        LogCapture capture;
        QStringList mine;
        Logger::Sink previous = logger->setSink([&](const Record &record) { mine.append(record.text()); });
        QVERIFY(bool(previous));

        VR_LOG << "to my sink";
        QCOMPARE(mine, QStringList{"to my sink"});
        QVERIFY(capture.records().isEmpty());

        // Putting the previous sink back hands out ours.
        Logger::Sink ours = logger->setSink(previous);
        VR_LOG << "back to the capture";
        QCOMPARE(capture.recordTexts(), QStringList{"back to the capture"});
        QCOMPARE(mine.size(), 1);
        ours(Record("f", "Common/X.cpp", 1) << "direct");
        QCOMPARE(mine, (QStringList{"to my sink", "direct"}));
    }

    void loggerWithoutSinkWritesLinesToStderr()
    {
        Logger logger;
        Record record("void f()", "VeloranDec/FFDecoder.cpp", 77);
        record << "---player--- decode error " << -11;
        const QByteArray written = captureStderr([&] { logger.write(record); });
        QCOMPARE(written, QByteArray("[VeloranDec/FFDecoder:77] ---player--- decode error -11\n"));

        // A sink takes over, and an empty one hands back to stderr.
        int seen = 0;
        logger.setSink([&](const Record &) { ++seen; });
        QCOMPARE(captureStderr([&] { logger.write(record); }), QByteArray());
        QCOMPARE(seen, 1);
        logger.setSink({});
        QCOMPARE(captureStderr([&] { logger.write(record); }), written);
        QCOMPARE(seen, 1);
    }

    void loggerTakesRecordsFromManyThreads()
    {
        LogCapture capture;
        const int threads = 6;
        const int perThread = 300;
        std::vector<std::thread> workers;
        for (int t = 0; t < threads; ++t) {
            workers.emplace_back([t] {
                for (int i = 0; i < perThread; ++i)
                    VR_LOG << "worker " << t << " line " << i;
            });
        }
        for (auto &worker : workers)
            worker.join();

        const QStringList texts = capture.recordTexts();
        QCOMPARE(texts.size(), threads * perThread);
        // Each thread's lines arrive whole and in the order written.
        for (int t = 0; t < threads; ++t) {
            const QString prefix = QStringLiteral("worker %1 line ").arg(t);
            int expected = 0;
            for (const QString &text : texts) {
                if (text.startsWith(prefix))
                    QCOMPARE(text.mid(prefix.size()).toInt(), expected++);
            }
            QCOMPARE(expected, perThread);
        }
    }

    void propertyMapReadsAbsentKeysAsInvalid()
    {
        PropertyMap *properties = VeloranBaseEntry()->properties();
        QVERIFY(!properties->value(QStringLiteral("kVob_DeMux_Enabled")).isValid());
        QVERIFY(!properties->value(QStringLiteral("foundation.test")).isValid());

        properties->setValue(QStringLiteral("foundation.test"), true);
        QCOMPARE(properties->value(QStringLiteral("foundation.test")), QVariant(true));
        QCOMPARE(properties->snapshot().value(QStringLiteral("foundation.test")), QVariant(true));
        properties->setValue(QStringLiteral("foundation.test"), QStringLiteral("again"));
        QCOMPARE(properties->value(QStringLiteral("foundation.test")).toString(), QStringLiteral("again"));
        properties->remove(QStringLiteral("foundation.test"));
        QVERIFY(!properties->value(QStringLiteral("foundation.test")).isValid());
        QVERIFY(!properties->snapshot().contains(QStringLiteral("foundation.test")));
    }

    void entryServicesAreProcessWide()
    {
        QVERIFY(VeloranBaseEntry() != nullptr);
        QCOMPARE(VeloranBaseEntry(), VeloranBaseEntry());
        VeloranBase *fromThread = nullptr;
        std::thread([&] { fromThread = VeloranBaseEntry(); }).join();
        QCOMPARE(fromThread, VeloranBaseEntry());
        QCOMPARE(VeloranBaseEntry()->workGate()->size(), qMax(2, QThread::idealThreadCount()));
        QCOMPARE(VeloranBaseEntry()->workGate()->available(), VeloranBaseEntry()->workGate()->size());
    }

    void workGateBoundsConcurrentWork()
    {
        WorkGate gate(2);
        QCOMPARE(gate.size(), 2);
        QVERIFY(gate.tryAcquire(0));
        QVERIFY(gate.tryAcquire(10));
        QCOMPARE(gate.available(), 0);
        QVERIFY(!gate.tryAcquire(30)); // full: the timed acquire gives up
        gate.release();
        QCOMPARE(gate.available(), 1);
        QVERIFY(gate.tryAcquire(0));

        // A waiter gets the slot that another thread releases while it waits.
        std::atomic_int result{-1};
        std::thread waiter([&] { result = gate.tryAcquire(30000) ? 1 : 0; });
        gate.release();
        waiter.join();
        QCOMPARE(result.load(), 1);
        QCOMPARE(gate.available(), 0);
        gate.release();
        gate.release();
        QCOMPARE(gate.available(), 2);

        WorkGate atLeastOne(0);
        QCOMPARE(atLeastOne.size(), 1);
        QVERIFY(atLeastOne.tryAcquire(0));
        QVERIFY(!atLeastOne.tryAcquire(0));
    }

    void factoriesGiveNullForNull()
    {
        QVERIFY(makeAVFramePtr(nullptr).isNull());
        QVERIFY(makeAVPacketPtr(nullptr).isNull());
        QVERIFY(makeAVFormatContextPtr(nullptr).isNull());
        QVERIFY(makeAVCodecContextPtr(nullptr).isNull());
        QVERIFY(makeAVCodecParametersPtr(nullptr).isNull());
        QVERIFY(makeAVIOContextPtr(nullptr).isNull());
        QVERIFY(makeSwsContextPtr(nullptr).isNull());
        QVERIFY(makeSwrContextPtr(nullptr).isNull());
    }

    void factoriesOwnWhatTheyAreGiven()
    {
        // The sanitizer build's leak check tells whether each of these is freed.
        AVFrame *rawFrame = av_frame_alloc();
        AVFramePtr frame = makeAVFramePtr(rawFrame);
        QCOMPARE(frame.data(), rawFrame);
        AVFramePtr copy = frame;
        frame.reset();
        QCOMPARE(copy.data(), rawFrame); // alive while a reference remains
        copy->width = 16;
        copy->height = 16;
        copy->format = AV_PIX_FMT_YUV420P;
        QCOMPARE(av_frame_get_buffer(copy.data(), 0), 0);

        AVPacketPtr packet = makeAVPacketPtr(av_packet_alloc());
        QVERIFY(packet);
        QCOMPARE(av_new_packet(packet.data(), 128), 0);

        const AVCodec *codec = avcodec_find_decoder(AV_CODEC_ID_H264);
        QVERIFY(codec);
        AVCodecContextPtr codecContext = makeAVCodecContextPtr(avcodec_alloc_context3(codec));
        QVERIFY(codecContext);
        AVCodecParametersPtr parameters = makeAVCodecParametersPtr(avcodec_parameters_alloc());
        QVERIFY(parameters);
        QVERIFY(makeAVFormatContextPtr(avformat_alloc_context())); // never opened

        SwsContextPtr scaler = makeSwsContextPtr(
            sws_getContext(16, 16, AV_PIX_FMT_YUV420P, 8, 8, AV_PIX_FMT_RGB24, SWS_BILINEAR, nullptr, nullptr, nullptr));
        QVERIFY(scaler);
        SwrContext *rawResampler = swr_alloc();
        QVERIFY(rawResampler);
        SwrContextPtr resampler = makeSwrContextPtr(rawResampler);
        QVERIFY(resampler);

        MemoryFile memory;
        AVIOContextPtr io = makeAVIOContextPtr(memory.makeContext());
        QVERIFY(io);
    }

    void openInputContextOpensFilesAndCustomIO()
    {
        const QString sample = TestMedia::path("sample.mp4");
        QVERIFY(QFile::exists(sample));

        AVFormatContextPtr context;
        QCOMPARE(openInputContext(context, sample.toUtf8().constData(), nullptr), 0);
        QVERIFY(context);
        QCOMPARE(avformat_find_stream_info(context.data(), nullptr) >= 0, true);
        QCOMPARE(int(context->nb_streams), 2);

        // A failed open leaves the pointer null.
        QVERIFY(openInputContext(context, "/no/such/file.mp4", nullptr) < 0);
        QVERIFY(context.isNull());

        // Custom I/O: owned by the opened context from then on.
        QFile file(sample);
        QVERIFY(file.open(QIODevice::ReadOnly));
        MemoryFile memory{file.readAll(), 0};
        AVIOContext *io = memory.makeContext();
        QCOMPARE(openInputContext(context, "", io), 0);
        QVERIFY(context);
        QCOMPARE(context->pb, io);
        QVERIFY(avformat_find_stream_info(context.data(), nullptr) >= 0);
        QCOMPARE(int(context->nb_streams), 2);
        context.reset();

        // ...and freed here when opening fails (nothing to probe).
        MemoryFile nothing;
        QVERIFY(openInputContext(context, "", nothing.makeContext()) < 0);
        QVERIFY(context.isNull());
        MemoryFile garbage{QByteArray(8192, '\x5a'), 0};
        QVERIFY(openInputContext(context, "", garbage.makeContext()) < 0);
        QVERIFY(context.isNull());
    }

    void ffmpegErrorsAreLoggedOnlyWhenNegative()
    {
        LogCapture capture;
        logIf_FF_Error(0, "open input");
        logIf_FF_Error(5, "read packet");
        QVERIFY(capture.records().isEmpty());

        logIf_FF_Error(AVERROR(ENOENT), "---demux--- open input");
        logIf_FF_Error(AVERROR_EOF, "---player--- read packet");
        logIf_FF_Error(AVERROR_INVALIDDATA, "---player--- send packet");
        QCOMPARE(capture.recordTexts(),
                 (QStringList{"---demux--- open input -2: No such file or directory",
                              "---player--- read packet -541478725: End of file",
                              "---player--- send packet -1094995529: Invalid data found when processing input"}));
        const Record first = capture.records().first();
        QCOMPARE(first.sourcePath(), QStringLiteral("Platform/FFmpegJoint/FFmpegJoint"));
        QCOMPARE(first.function(), QStringLiteral("void Veloran::logIf_FF_Error(int, const char*)"));
        QCOMPARE(ffErrorText(AVERROR(EAGAIN)), QStringLiteral("Resource temporarily unavailable"));
    }
};

QTEST_GUILESS_MAIN(TstPlatform)
#include "tst_platform.moc"
