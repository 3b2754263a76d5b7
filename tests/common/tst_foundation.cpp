#include "LogCapture.h"
#include "TestMedia.h"

#include "Common/BasicObject.h"
#include "Common/Helpers.h"
#include "Common/Stopwatch.h"
#include "Common/ThreadDispatch.h"
#include "Common/TryThread.h"
#include "Common/WaitCondition.h"
#include "FFmpegJoint.h"
#include "Model/TimelineFiles.h"
#include "VeloranBaseEntry.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include <atomic>
#include <climits>
#include <cstdio>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include <unistd.h>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

using namespace Veloran;

namespace {

// FFmpeg custom I/O that reads nothing, or garbage without end.
int readNothing(void *, uint8_t *, int)
{
    return AVERROR_EOF;
}
int readGarbage(void *, uint8_t *buffer, int size)
{
    memset(buffer, 0x5a, size_t(size));
    return size;
}
AVIOContext *customIO(int (*read)(void *, uint8_t *, int))
{
    return avio_alloc_context(static_cast<uint8_t *>(av_malloc(4096)), 4096, 0, nullptr, read, nullptr, nullptr);
}

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

// Child-process modes of this binary, for checks that end the process.
const char *const kChildOtherThread = "--child-assert-own-thread-elsewhere";
const char *const kChildMainThread = "--child-assert-main-thread-elsewhere";

struct ThrowingThread : TryThread
{
    std::atomic_int throwWhat{0}; // 0: return normally, 1: a std::exception, 2: an int
    void tryRun() override
    {
        if (throwWhat == 1)
            throw std::runtime_error("decoder gave up");
        if (throwWhat == 2)
            throw 42;
    }
};

// What wait() gives a thread that waits on `condition` while `wake` is called until
// it answers (wakes before the waiter sleeps are lost); -1 when it never answers.
template <typename Wake>
int waitResult(WaitCondition &condition, Wake wake)
{
    std::atomic_int result{-1};
    std::thread waiter([&] { result = condition.wait(30000) ? 1 : 0; });
    QElapsedTimer timer;
    for (timer.start(); result.load() == -1 && timer.elapsed() < 20000; QThread::msleep(1))
        wake();
    waiter.join();
    return result.load();
}

} // namespace

class TstFoundation : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void helpersGiveTheirResultsAndRefuseBadInput()
    {
        // The earliest wins a tie, an empty list gives the target back, and distances
        // beyond the signed range do not overflow.
        QCOMPARE(getNearestValue(QList<double>{1.5, 0.5}, 1.0), 1.5);
        QCOMPARE(getNearestValue(QList<long long>{}, 42LL), 42LL);
        QCOMPARE(getNearestValue(QList<int>{INT_MIN, INT_MAX}, 0), INT_MAX);
        QCOMPARE(toEvenValue(-3), -2);
        // Ties go away from zero, also for negative factors.
        QCOMPARE(closestNumber(-10, 4), -12);
        QCOMPARE(closestNumber(10, -4), 12);
        QCOMPARE(closestNumber(9, 4), 8);

        QVERIFY(isUtf8String(nullptr));
        QVERIFY(isUtf8String("Gr\xc3\xbc\xc3\x9f" "e \xe2\x82\xac \xf4\x8f\xbf\xbf")); // up to U+10FFFF
        for (const char *bad : {"\xf4\x90\x80\x80" /* above U+10FFFF */, "\xed\xa0\x80" /* surrogate */,
                                "\xc0\xaf", "\xe0\x9f\xbf" /* overlong */, "ok\xbf" /* stray continuation */,
                                "\xc3\x28", "\xe2\x82" "abc", "abc\xf0\x9f" /* truncated */})
            QVERIFY2(!isUtf8String(bad), QByteArray(bad).toHex().constData());

        QCOMPARE(appendPath(QStringLiteral("/a/./b/"), QStringLiteral("/../c")), QStringLiteral("/a/c"));
        QCOMPARE(appendPath(QStringLiteral(":"), QStringLiteral("fx")), QStringLiteral(":/fx"));
        const QString id = md5FromQUuid();
        QVERIFY2(QRegularExpression(QStringLiteral("^[0-9a-f]{32}$")).match(id).hasMatch(), qPrintable(id));
        QVERIFY(md5FromQUuid() != id);
        // With no known models the vendor named in the text is the answer.
        QCOMPARE(getCodecGpuName(QStringLiteral("NVIDIA Quadro beside an AMD card")), QStringLiteral("NVIDIA"));

        // Images are recognised by their content, not the suffix, and GIFs are not images.
        QTemporaryDir dir;
        QVERIFY(QFile::copy(TestMedia::path("common-still.png"), dir.filePath("picture.gif")));
        QVERIFY(QFile::copy(TestMedia::path("common-still.gif"), dir.filePath("animation.png")));
        QVERIFY(isImage(dir.filePath("picture.gif")) && !isImage(dir.filePath("animation.png")));
        QVERIFY(!isImage(dir.filePath("missing.png")) && !isImage(TestMedia::path("sample.mp4")));
    }

    void filesRoundTripAndFailSilently()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath("timeline.json");
        const QString text = QStringLiteral("{\"title\": \"Gr\u00fc\u00dfe \u20ac \U0001F600\"}\n");
        LogCapture capture;
        saveToFile(text, path);
        QCOMPARE(getFileContent(path), text);
        saveToFile(QStringLiteral("short"), path); // replaced, not partly overwritten
        QCOMPARE(getFileContent(path), QStringLiteral("short"));

        QVERIFY(getFileContent(dir.path()).isEmpty() && getFileContent(QString()).isEmpty());
        saveToFile(QStringLiteral("{}"), dir.filePath("no/such/out.json"));
        saveToFile(QStringLiteral("{}"), QString());
        QVERIFY(!QFile::exists(dir.filePath("no/such/out.json")));
        QVERIFY2(capture.messages().isEmpty() && capture.records().isEmpty(), qPrintable(capture.messages().join('\n')));
    }

    void jsonConvertsBothWays()
    {
        const QVariantMap map{{"name", QStringLiteral("Clip \u00e9")}, {"count", 3}, {"speed", 1.5}, {"muted", true},
                              {"clips", QVariantList{QVariantMap{{"file_path", "/m/a.mp4"}}, "x", 7}}};
        const QString compact = variantMapToJson(map, false);
        QCOMPARE(compact, QStringLiteral("{\"clips\":[{\"file_path\":\"/m/a.mp4\"},\"x\",7],\"count\":3,"
                                         "\"muted\":true,\"name\":\"Clip \u00e9\",\"speed\":1.5}"));
        const QString indented = variantMapToJson(map, true);
        QVERIFY(indented.startsWith(QStringLiteral("{\n    \"clips\": [\n")));
        QCOMPARE(variantMapToJson(jsonToVariantMap(indented), false), compact);
    }

    // Texts are read as Qt reads them (nothing for bad ones), except that a repeated key
    // keeps its last value.
    void jsonReadsAsQtDoes_data()
    {
        QTest::addColumn<QString>("json");
        QTest::newRow("list") << QStringLiteral(R"([1, {"three": 3}])");
        QTest::newRow("map") << QStringLiteral(R"({"a": 1})");
        QTest::newRow("empty") << QString();
        QTest::newRow("unclosed") << QStringLiteral("{\"a\": [1, 2");
        QTest::newRow("trailing") << QStringLiteral("{\"a\": 1} trailing");
        QTest::newRow("garbage") << QString::fromLatin1("\x01\x02\xff garbage");
        // A repeat does not hide what is wrong around it.
        QTest::newRow("repeat after a bad member") << QStringLiteral("{\"a\": 1 x, \"a\": 2}");
        QTest::newRow("repeat of a bad key") << QStringLiteral("{\"\\u12\": 1, \"\": 2}");
        QTest::newRow("repeat in a bad value") << QStringLiteral("{\"a\": {\"b\": 1, \"b\": [}, \"a\": 2}");
        QTest::newRow("scalar") << QStringLiteral(R"({"a": 1, "b": 2, "a": 3})");
        QTest::newRow("array replaced") << QStringLiteral(R"({"s": [[]], "s": ""})");
        QTest::newRow("object replaced by array") << QStringLiteral(R"({"s": {"x": 1}, "t": 0, "s": [1]})");
        QTest::newRow("three times") << QStringLiteral(R"({"a": [1], "a": {"b": 2}, "a": true})");
        QTest::newRow("escaped spelling") << QStringLiteral("{\"\\u0061\": [1], \"a\": 2}");
        QTest::newRow("nested object") << QStringLiteral(R"({"id": "/", "p": {"dir": "/x", "k": [], "dir": "/y"}})");
        QTest::newRow("inside the replaced value") << QStringLiteral(R"({"a": {"b": [], "b": 1}, "a": {"c": {}, "c": 2}})");
        QTest::newRow("deep in arrays") << QStringLiteral(R"({"t": [{"c": [{"id": "c1", "f": {}, "f": {"z": 1}}]}]})");
        QTest::newRow("list of objects") << QStringLiteral(R"([{"a": {}, "a": 1}, {"a": 2}, [{"b": [], "b": null}]])");
        QTest::newRow("keys in strings") << QStringLiteral("{\"a\": \"{\\\"a\\\": 1, \\\"a\\\": 2}\", \"a\": \"x,\\\"a\\\":\"}");
    }

    // Qt's own reading of repeats leaks what they replace: the reference is read with
    // leak detection off.
    void jsonReadsAsQtDoes()
    {
        QFETCH(QString, json);
        QJsonDocument reference;
        {
#if defined(__SANITIZE_ADDRESS__)
            __lsan::ScopedDisabler leaksIgnored;
#endif
            reference = QJsonDocument::fromJson(json.toUtf8());
        }
        QCOMPARE(jsonToVariantMap(json), reference.object().toVariantMap());
        QCOMPARE(jsonToVariantList(json), reference.array().toVariantList());
    }

    void timelineDirDotBecomesTheFilesFolder_data()
    {
        QTest::addColumn<QString>("timelineDir");
        QTest::newRow("dot") << QStringLiteral(".");
        QTest::newRow("dot slash") << QStringLiteral("./");
        QTest::newRow("absolute") << QStringLiteral("/srv/projects/trip");
    }

    void timelineDirDotBecomesTheFilesFolder()
    {
        QFETCH(QString, timelineDir);
        QTemporaryDir dir;
        QVERIFY(QDir(dir.path()).mkpath("project/sub"));
        saveToFile(QStringLiteral("{\"preview_param\": {\"timeline_dir\": \"%1\", \"width\": 1920},"
                                  " \"clips\": [{\"file_path\": \"../a.mp4\"}, {\"file_path\": \"b.mp4\"}]}")
                       .arg(timelineDir),
                   dir.filePath("project/sub/timeline.json"));
        // Read through a relative path: the folder still comes back absolute.
        const QString previous = QDir::currentPath();
        QVERIFY(QDir::setCurrent(dir.path()));
        const QString json = loadTimelineJsonFromPath(QStringLiteral("project/sub/timeline.json"));
        QVERIFY(QDir::setCurrent(previous));

        const QVariantMap all = jsonToVariantMap(json);
        const QVariantMap preview = all.value("preview_param").toMap();
        QCOMPARE(preview.value("timeline_dir").toString(),
                 timelineDir == "." ? QDir(dir.path()).absoluteFilePath("project/sub") : timelineDir);
        QCOMPARE(getTimelineFirstClipPath(all), QStringLiteral("../a.mp4")); // as written
        QCOMPARE(getTimelineFirstClipPath(jsonToVariantMap("{\"clips\": [{\"name\": \"no path\"}]}")), QString());
        QVERIFY(json.contains(QStringLiteral("\n    \"clips\""))); // indented
    }

    // The description's log line and bad folders (reading a folder end to end is tst_fetcher's).
    void materialDescriptionIsLoggedAndBadFoldersGiveNothing()
    {
        LogCapture capture;
        const QVariantMap map = getMaterialJsonMap(QStringLiteral(VR_MATERIAL_DIR));
        QCOMPARE(capture.messages(),
                 QStringList{QStringLiteral(
                     "jsonMap :  QMap((\"duration\", QVariant(qlonglong, 4000))(\"name\", QVariant(QString, \"Snow\"))"
                     "(\"rcc_prefix\", QVariant(QString, \"snow\"))(\"source\", QVariant(QString, \"media/flakes.json\")))")});
        QTemporaryDir empty;
        capture.clear();
        QVERIFY(getMaterialJsonMap(empty.path()).isEmpty());
        QCOMPARE(capture.messages(), QStringList{QStringLiteral("jsonMap :  QMap()")});
        QCOMPARE(getRccSourcePath(empty.path(), map), QString());
        saveToFile(QStringLiteral("this is not a resource file"), empty.filePath("resource.rcc"));
        QCOMPARE(getRccSourcePath(empty.path(), map), QString());
    }

    void recordsCarryTextOriginAndFunction()
    {
        LogCapture capture;
        const int line = __LINE__ + 1;
        VR_LOG << "count: " << 3 << ", name " << QStringLiteral("x") << " ratio " << 2.5 << " " << true;
        QCOMPARE(capture.records().size(), 1);
        const Record record = capture.records().first();
        QCOMPARE(record.text(), QStringLiteral("count: 3, name x ratio 2.5 true"));
        QCOMPARE(record.sourcePath(), QStringLiteral("tests/common/tst_foundation"));
        QCOMPARE(record.function(), QStringLiteral("void TstFoundation::recordsCarryTextOriginAndFunction()"));
        QCOMPARE(record.line(), line);
        QVERIFY(capture.messages().isEmpty()); // tagged lines do not go through qDebug
        // A checkout below a folder named like a project folder.
        QCOMPARE(Record::projectRelativePath("/home/Projects/vr/VeloranDec/Adapter/FFVideoAdapter.cpp"),
                 QStringLiteral("VeloranDec/Adapter/FFVideoAdapter"));
    }

    void loggerSinkIsReplaceableAndStderrIsTheDefault()
    {
        Logger *logger = VeloranBaseEntry()->logger();
        LogCapture capture;
        QStringList mine;
        const Logger::Sink previous = logger->setSink([&](const Record &record) { mine.append(record.text()); });
        VR_LOG << "to my sink";
        logger->setSink(previous);
        VR_LOG << "back to the capture";
        QCOMPARE(mine, QStringList{"to my sink"});
        QCOMPARE(capture.recordTexts(), QStringList{"back to the capture"});

        Logger own;
        Record record("void f()", "VeloranDec/FFDecoder.cpp", 77);
        record << "---player--- decode error " << -11;
        const QByteArray written = captureStderr([&] { own.write(record); });
        QCOMPARE(written, QByteArray("[VeloranDec/FFDecoder:77] ---player--- decode error -11\n"));
        own.setSink([](const Record &) {});
        QCOMPARE(captureStderr([&] { own.write(record); }), QByteArray());
        own.setSink({}); // an empty sink hands back to stderr
        QCOMPARE(captureStderr([&] { own.write(record); }), written);

        // Absent settings read as invalid.
        QVERIFY(!VeloranBaseEntry()->properties()->value(QStringLiteral("kVob_DeMux_Enabled")).isValid());
    }

    void ffmpegGlueOwnsAndLogs()
    {
        AVFormatContextPtr context;
        QCOMPARE(openInputContext(context, TestMedia::path("sample.mp4").toUtf8().constData(), nullptr), 0);
        QCOMPARE(int(context->nb_streams), 2);
        QVERIFY(openInputContext(context, "/no/such/file.mp4", nullptr) < 0);
        QVERIFY(context.isNull());
        // Custom I/O that fails to open is freed with the dropped context (the leak check sees it).
        QVERIFY(openInputContext(context, "", customIO(readNothing)) < 0);
        QVERIFY(openInputContext(context, "", customIO(readGarbage)) < 0);
        QVERIFY(context.isNull());

        LogCapture capture;
        logIf_FF_Error(0, "open input");
        logIf_FF_Error(AVERROR(ENOENT), "---demux--- open input");
        logIf_FF_Error(AVERROR_EOF, "---player--- read packet");
        QCOMPARE(capture.recordTexts(), (QStringList{"---demux--- open input -2: No such file or directory",
                                                     "---player--- read packet -541478725: End of file"}));
        QCOMPARE(capture.records().first().sourcePath(), QStringLiteral("Platform/FFmpegJoint/FFmpegJoint"));
    }

    void stopwatchLogsItsNameAndTime()
    {
        LogCapture capture;
        {
            Stopwatch watch(QStringLiteral("decode frame"));
            Stopwatch nameless;
            QThread::msleep(3);
        }
        // One line (the nameless watch is silent), in microseconds despite its label, as QDebug puts it.
        QCOMPARE(capture.messages().size(), 1);
        const QRegularExpressionMatch match = QRegularExpression(QStringLiteral("^\"decode frame\"  cost : (\\d+) \\(ns\\)$"))
                                                  .match(capture.messages().first());
        QVERIFY2(match.hasMatch() && match.captured(1).toLongLong() >= 3000, qPrintable(capture.messages().first()));
    }

    void loggerTakesRecordsFromManyThreads()
    {
        LogCapture capture;
        std::vector<std::thread> workers;
        for (int t = 0; t < 6; ++t) {
            workers.emplace_back([t] {
                for (int i = 0; i < 300; ++i)
                    VR_LOG << "worker " << t << " line " << i;
            });
        }
        for (auto &worker : workers)
            worker.join();
        // Each thread's lines arrive whole and in the order written.
        const QStringList texts = capture.recordTexts();
        QCOMPARE(texts.size(), 6 * 300);
        QVector<int> next(6, 0);
        for (const QString &text : texts) {
            const QStringList parts = text.split(' ');
            QCOMPARE(parts.size(), 4);
            QCOMPARE(parts[3].toInt(), next[parts[1].toInt()]++);
        }
    }

    void workGateBoundsConcurrentWork()
    {
        VeloranBase *fromThread = nullptr;
        std::thread([&] { fromThread = VeloranBaseEntry(); }).join();
        QCOMPARE(fromThread, VeloranBaseEntry()); // one per process
        QCOMPARE(VeloranBaseEntry()->workGate()->size(), qMax(2, QThread::idealThreadCount()));

        WorkGate gate(2);
        QVERIFY(gate.tryAcquire(0) && gate.tryAcquire(10));
        QVERIFY(!gate.tryAcquire(30)); // full: the timed acquire gives up
        // A waiter gets the slot that another thread releases while it waits.
        std::atomic_bool acquired{false};
        std::thread waiter([&] { acquired = gate.tryAcquire(30000); });
        gate.release();
        waiter.join();
        QVERIFY(acquired.load());
        QCOMPARE(gate.available(), 0);
        WorkGate atLeastOne(0);
        QVERIFY(atLeastOne.tryAcquire(0));
        QVERIFY(!atLeastOne.tryAcquire(0));
    }

    void waitConditionTellsHowItWasWoken()
    {
        LogCapture capture;
        {
            WaitCondition condition(false); // the start value is overwritten by wait()
            QCOMPARE(waitResult(condition, [&] { condition.wakeOne(); }), 1);
            QCOMPARE(waitResult(condition, [&] { condition.wakeOneFalse(); }), 0);
            QCOMPARE(waitResult(condition, [&] { condition.wakeOne(); }), 1); // false was for that wake only
            condition.wakeOne(); // nobody waits: lost, so the next wait times out
            QCOMPARE(condition.wait(60), false);
            QVERIFY(capture.messages().isEmpty());
        }
        QCOMPARE(capture.messages(), QStringList{QStringLiteral("~WaitCondition()....")});
    }

    void tryThreadCatchesAndReportsExceptions()
    {
        ThrowingThread thread;
        // Counted atomically where it is emitted, on the thread (a signal spy's list would race).
        std::atomic_int exceptions{0};
        connect(&thread, &TryThread::exceptionThrowOut, [&exceptions] { ++exceptions; });
        QCOMPARE(thread.isFinishedSuccess(), false); // not run yet
        for (int what : {0, 1, 2, 0}) {
            thread.throwWhat = what;
            thread.start();
            QVERIFY(thread.wait(10000));
            QCOMPARE(thread.isFinishedSuccess(), what == 0); // the last run's outcome
        }
        QCOMPARE(exceptions.load(), 2); // once per exception, of any type
    }

    void dispatchRunsLaterOnTheTargetThreadAndNeverWaits()
    {
        QThread worker;
        worker.start();
        const auto stop = qScopeGuard([&] {
            worker.quit();
            worker.wait();
        });
        std::mutex mutex;
        QStringList order;
        auto note = [&](const char *step) {
            std::lock_guard<std::mutex> lock(mutex);
            order.append(QString::fromLatin1(step) + (QThread::currentThread() == &worker ? "@worker" : "@other"));
        };
        auto steps = [&] {
            std::lock_guard<std::mutex> lock(mutex);
            return order;
        };
        // From the target thread itself the function is deferred, not run inside the call.
        QSemaphore release;
        dispatchToThread(&worker, [&] {
            note("outer start");
            dispatchToThread(QThread::currentThread(), [&] { note("inner"); });
            note("outer end");
            release.acquire();
        });
        QTRY_COMPARE_WITH_TIMEOUT(steps().size(), 2, 10000);
        // The worker's loop is blocked; handing it more work still returns at once.
        dispatchToThread(&worker, [&] { note("second"); });
        QCOMPARE(steps().size(), 2);
        release.release();
        QTRY_COMPARE_WITH_TIMEOUT(steps().size(), 4, 10000);
        QCOMPARE(steps(), (QStringList{"outer start@worker", "outer end@worker", "inner@worker", "second@worker"}));
    }

    void dispatchToMainThreadRunsInTheMainLoop()
    {
        // Each dispatch uses a timer that deletes itself; the leak check sees it.
        std::atomic<QThread *> ranOn{nullptr};
        std::atomic_int runs{0};
        auto fn = [&] {
            ranOn = QThread::currentThread();
            ++runs;
        };
        dispatchToMainThread(fn);
        QCOMPARE(runs.load(), 0); // never inside the call, even from the main thread itself
        QTRY_COMPARE_WITH_TIMEOUT(runs.load(), 1, 10000);
        ranOn = nullptr;
        std::thread([&] { dispatchToMainThread(fn); }).join();
        QTRY_COMPARE_WITH_TIMEOUT(runs.load(), 2, 10000);
        QCOMPARE(ranOn.load(), QCoreApplication::instance()->thread());
    }

    void assertionsPassOnTheOwningThreadAndForDetachedObjects()
    {
        BasicObject object;
        object.assertOwnThread();
        object.assertMainThread();
        Veloran::assertOwnThread(nullptr);
        // An object with no thread at all may be used from anywhere.
        object.moveToThread(nullptr);
        std::thread([&] { object.assertOwnThread(); }).join();
        QVERIFY(object.thread() == nullptr);
    }

    void assertionsAbortOnTheWrongThread_data()
    {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<QString>("message");
        QTest::newRow("own thread") << kChildOtherThread << QStringLiteral("assertOwnThread: Veloran::BasicObject 0x");
        QTest::newRow("main thread") << kChildMainThread << QStringLiteral("assertMainThread: called from thread 0x");
    }

    void assertionsAbortOnTheWrongThread()
    {
        QFETCH(QString, mode);
        QFETCH(QString, message);
        QProcess child;
        child.start(QCoreApplication::applicationFilePath(), {mode});
        QVERIFY(child.waitForFinished(60000));
        const QString errors = QString::fromLocal8Bit(child.readAllStandardError());
#ifdef VR_THREAD_CHECKS
        QCOMPARE(child.exitStatus(), QProcess::CrashExit);
        QVERIFY2(errors.contains(message), qPrintable(errors));
#else
        // Release builds check nothing.
        QCOMPARE(child.exitStatus(), QProcess::NormalExit);
        QVERIFY2(!errors.contains(message), qPrintable(errors));
#endif
    }
};

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (argc == 2 && (qstrcmp(argv[1], kChildOtherThread) == 0 || qstrcmp(argv[1], kChildMainThread) == 0)) {
        BasicObject object;
        const bool own = qstrcmp(argv[1], kChildOtherThread) == 0;
        std::thread([&] { own ? object.assertOwnThread() : Veloran::assertMainThread(); }).join();
        return 0; // only reached when the assertion let the call through
    }
    TstFoundation test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_foundation.moc"
