#include "LogCapture.h"
#include "TestMedia.h"

#include "Model/TimelineFiles.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

using namespace Veloran;

namespace {

QByteArray rawBytes(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeRaw(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(bytes), qint64(bytes.size()));
}

QVariantMap previewParam(const QString &json)
{
    return jsonToVariantMap(json).value(QStringLiteral("preview_param")).toMap();
}

} // namespace

class TstTimelineFiles : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void filesRoundTripAsUtf8()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath("timeline.json");
        const QString text = QStringLiteral("{\"title\": \"Gr\u00fc\u00dfe \u20ac \U0001F600\"}\nline two\n");

        LogCapture capture;
        saveToFile(text, path);
        QCOMPARE(rawBytes(path), text.toUtf8());
        QCOMPARE(getFileContent(path), text);

        // An existing file is replaced, not appended to or partly overwritten.
        saveToFile(QStringLiteral("short"), path);
        QCOMPARE(rawBytes(path), QByteArray("short"));
        QVERIFY(capture.messages().isEmpty());
    }

    void unreadableAndUnwritablePathsAreSilent()
    {
        QTemporaryDir dir;
        LogCapture capture;
        QCOMPARE(getFileContent(dir.filePath("missing.json")), QString());
        QCOMPARE(getFileContent(dir.path()), QString());
        QCOMPARE(getFileContent(QString()), QString());

        const QString inMissingFolder = dir.filePath("no/such/folder/out.json");
        saveToFile(QStringLiteral("{}"), inMissingFolder);
        QVERIFY(!QFile::exists(inMissingFolder));
        saveToFile(QStringLiteral("{}"), dir.path()); // a folder cannot be opened as a file
        QVERIFY(QFileInfo(dir.path()).isDir());
        saveToFile(QStringLiteral("{}"), QString());

        QVERIFY2(capture.messages().isEmpty(), qPrintable(capture.messages().join('\n')));
        QVERIFY(capture.records().isEmpty());
    }

    void jsonConvertsBothWays()
    {
        QVariantMap map;
        map.insert(QStringLiteral("name"), QStringLiteral("Clip \u00e9"));
        map.insert(QStringLiteral("count"), 3);
        map.insert(QStringLiteral("speed"), 1.5);
        map.insert(QStringLiteral("muted"), true);
        map.insert(QStringLiteral("clips"), QVariantList{QVariantMap{{QStringLiteral("file_path"), QStringLiteral("/m/a.mp4")}},
                                                         QStringLiteral("x"), 7});

        const QString compact = variantMapToJson(map, false);
        QCOMPARE(compact, QStringLiteral("{\"clips\":[{\"file_path\":\"/m/a.mp4\"},\"x\",7],\"count\":3,"
                                         "\"muted\":true,\"name\":\"Clip \u00e9\",\"speed\":1.5}"));
        const QString indented = variantMapToJson(map, true);
        QVERIFY(indented.startsWith(QStringLiteral("{\n    \"clips\": [\n")));
        QVERIFY(indented.endsWith(QStringLiteral("}\n")));

        for (const QString &json : {compact, indented}) {
            const QVariantMap back = jsonToVariantMap(json);
            QCOMPARE(back.keys(), map.keys());
            QCOMPARE(back.value("name").toString(), map.value("name").toString());
            QCOMPARE(back.value("count").toInt(), 3);
            QCOMPARE(back.value("speed").toDouble(), 1.5);
            QCOMPARE(back.value("muted").toBool(), true);
            const QVariantList clips = back.value("clips").toList();
            QCOMPARE(clips.size(), 3);
            QCOMPARE(clips.at(0).toMap().value("file_path").toString(), QStringLiteral("/m/a.mp4"));
            QCOMPARE(clips.at(1).toString(), QStringLiteral("x"));
            QCOMPARE(clips.at(2).toInt(), 7);
        }

        const QVariantList list = jsonToVariantList(QStringLiteral("[1, \"two\", {\"three\": 3}, [4]]"));
        QCOMPARE(list.size(), 4);
        QCOMPARE(list.at(0).toInt(), 1);
        QCOMPARE(list.at(1).toString(), QStringLiteral("two"));
        QCOMPARE(list.at(2).toMap().value("three").toInt(), 3);
        QCOMPARE(list.at(3).toList().value(0).toInt(), 4);

        QCOMPARE(variantMapToJson(QVariantMap(), false), QStringLiteral("{}"));
    }

    void badJsonGivesEmptyContainers()
    {
        // Arrays are not maps and objects are not lists.
        QVERIFY(jsonToVariantMap(QStringLiteral("[1, 2, 3]")).isEmpty());
        QVERIFY(jsonToVariantList(QStringLiteral("{\"a\": 1}")).isEmpty());

        const QStringList broken = {QString(), QStringLiteral("   "), QStringLiteral("{"), QStringLiteral("{\"a\": }"),
                                    QStringLiteral("[1, 2"), QStringLiteral("{\"a\": 1} trailing"), QStringLiteral("null"),
                                    QStringLiteral("42"), QStringLiteral("\"text\""), QStringLiteral("{'a': 1}"),
                                    QString::fromLatin1("\x01\x02\xff garbage")};
        for (const QString &json : broken) {
            QVERIFY2(jsonToVariantMap(json).isEmpty(), qPrintable(json));
            QVERIFY2(jsonToVariantList(json).isEmpty(), qPrintable(json));
        }
    }

    void timelineDirDotBecomesTheFilesFolder_data()
    {
        QTest::addColumn<QString>("timelineDir");
        QTest::addColumn<bool>("replaced");
        QTest::newRow("dot") << QStringLiteral(".") << true;
        QTest::newRow("dot slash") << QStringLiteral("./") << false;
        QTest::newRow("absolute") << QStringLiteral("/srv/projects/trip") << false;
        QTest::newRow("empty") << QString() << false;
        QTest::newRow("dot dot") << QStringLiteral("..") << false;
    }

    void timelineDirDotBecomesTheFilesFolder()
    {
        QFETCH(QString, timelineDir);
        QFETCH(bool, replaced);

        QTemporaryDir dir;
        QVERIFY(QDir(dir.path()).mkpath("project/sub"));
        const QString path = dir.filePath("project/sub/timeline.json");
        writeRaw(path, QStringLiteral("{\"preview_param\": {\"timeline_dir\": \"%1\", \"width\": 1920},"
                                      " \"clips\": [{\"file_path\": \"a.mp4\"}], \"version\": 3}")
                           .arg(timelineDir)
                           .toUtf8());

        // Read through a relative path to the file: the folder still comes back absolute.
        const QString previous = QDir::currentPath();
        QVERIFY(QDir::setCurrent(dir.path()));
        const QString json = loadTimelineJsonFromPath(QStringLiteral("project/sub/timeline.json"));
        QVERIFY(QDir::setCurrent(previous));

        const QVariantMap preview = previewParam(json);
        const QString expectedDir = replaced ? QDir(dir.path()).absoluteFilePath("project/sub") : timelineDir;
        QCOMPARE(preview.value("timeline_dir").toString(), expectedDir);
        QCOMPARE(preview.value("width").toInt(), 1920);
        const QVariantMap all = jsonToVariantMap(json);
        QCOMPARE(all.value("version").toInt(), 3);
        QCOMPARE(getTimelineFirstClipPath(all), QStringLiteral("a.mp4"));
        QVERIFY(json.contains(QStringLiteral("\n    \"clips\"")));  // indented
    }

    void timelineWithoutPreviewParamStaysWithout()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath("timeline.json");
        writeRaw(path, "{\"clips\": [], \"timeline_dir\": \".\"}");
        const QVariantMap map = jsonToVariantMap(loadTimelineJsonFromPath(path));
        QVERIFY(!map.contains("preview_param"));
        QCOMPARE(map.value("timeline_dir").toString(), QStringLiteral("."));
        QVERIFY(map.value("clips").toList().isEmpty());

        // Missing and broken documents come back as an empty object.
        QVERIFY(jsonToVariantMap(loadTimelineJsonFromPath(dir.filePath("missing.json"))).isEmpty());
        writeRaw(path, "{\"preview_param\": {\"timeline_dir\": \".\"");
        QVERIFY(jsonToVariantMap(loadTimelineJsonFromPath(path)).isEmpty());
    }

    void firstClipPathIsTakenAsWritten()
    {
        QCOMPARE(getTimelineFirstClipPath(QVariantMap()), QString());
        QCOMPARE(getTimelineFirstClipPath(jsonToVariantMap("{\"clips\": []}")), QString());
        QCOMPARE(getTimelineFirstClipPath(jsonToVariantMap("{\"clips\": \"not a list\"}")), QString());
        QCOMPARE(getTimelineFirstClipPath(jsonToVariantMap("{\"clips\": [{\"name\": \"no path\"}]}")), QString());
        QCOMPARE(getTimelineFirstClipPath(jsonToVariantMap(
                     "{\"clips\": [{\"file_path\": \"../media/first.mov\"}, {\"file_path\": \"/second.mov\"}]}")),
                 QStringLiteral("../media/first.mov"));
    }

    void materialDescriptionIsReadAndLogged()
    {
        const QString material = TestMedia::path("common-material");
        LogCapture capture;
        const QVariantMap map = getMaterialJsonMap(material);
        QCOMPARE(map.value("name").toString(), QStringLiteral("Snow"));
        QCOMPARE(map.value("rcc_prefix").toString(), QStringLiteral("snow"));
        QCOMPARE(map.value("source").toString(), QStringLiteral("media/flakes.json"));
        QCOMPARE(capture.messages(),
                 QStringList{QStringLiteral(
                     "jsonMap :  QMap((\"duration\", QVariant(qlonglong, 4000))(\"name\", QVariant(QString, \"Snow\"))"
                     "(\"rcc_prefix\", QVariant(QString, \"snow\"))(\"source\", QVariant(QString, \"media/flakes.json\")))")});

        capture.clear();
        QTemporaryDir empty;
        QVERIFY(getMaterialJsonMap(empty.path()).isEmpty());
        QCOMPARE(capture.messages(), QStringList{QStringLiteral("jsonMap :  QMap()")});
    }

    void materialSourceIsReadableFromItsResourceFile()
    {
        const QString material = TestMedia::path("common-material");
        QVERIFY(QFile::exists(material + "/resource.rcc"));
        const QString source = getRccSourcePath(material, getMaterialJsonMap(material));
        QCOMPARE(source, QStringLiteral(":/snow/media/flakes.json"));

        QFile resource(source);
        QVERIFY(resource.open(QIODevice::ReadOnly));
        const QVariantMap content = jsonToVariantMap(QString::fromUtf8(resource.readAll()));
        QCOMPARE(content.value("effect").toString(), QStringLiteral("snow"));
        QCOMPARE(content.value("flakes").toInt(), 240);

        // A prefix written with its slash gives the same path; registering again is harmless.
        const QVariantMap slashed{{QStringLiteral("rcc_prefix"), QStringLiteral("/snow")},
                                  {QStringLiteral("source"), QStringLiteral("media/flakes.json")}};
        QCOMPARE(getRccSourcePath(material, slashed), source);
        QVERIFY(QFile::exists(source));
    }

    void materialWithoutResourceFileGivesNoPath()
    {
        QTemporaryDir dir;
        const QVariantMap material{{QStringLiteral("rcc_prefix"), QStringLiteral("snow")},
                                   {QStringLiteral("source"), QStringLiteral("media/flakes.json")}};
        QCOMPARE(getRccSourcePath(dir.path(), material), QString());

        // A file that is not a resource file is refused as well.
        writeRaw(dir.filePath("resource.rcc"), "this is not a resource file");
        QCOMPARE(getRccSourcePath(dir.path(), material), QString());
        QCOMPARE(getRccSourcePath(dir.filePath("missing"), QVariantMap()), QString());
    }
};

QTEST_GUILESS_MAIN(TstTimelineFiles)
#include "tst_timelinefiles.moc"
