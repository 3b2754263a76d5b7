#include "LogCapture.h"
#include "TestMedia.h"

#include "Common/Helpers.h"
#include "VeloranBaseEntry.h"

#include <QFileInfo>
#include <QtTest>

class TstFoundation : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void recordsReachTheReplaceableSink()
    {
        LogCapture capture;
        VR_LOG << "count: " << 3 << ", name " << QStringLiteral("x");
        const QList<Veloran::Record> records = capture.records();
        QCOMPARE(records.size(), 1);
        QCOMPARE(records.first().text(), QStringLiteral("count: 3, name x"));
        QCOMPARE(records.first().sourcePath(), QStringLiteral("tests/common/tst_foundation"));
        QVERIFY(records.first().function().contains(QStringLiteral("recordsReachTheReplaceableSink")));
    }

    void generatedMediaExists()
    {
        QVERIFY(QFileInfo(TestMedia::path("sample.mp4")).size() > 1000);
        QVERIFY(QFileInfo(TestMedia::path("sine.wav")).size() > 1000);
    }
};

QTEST_GUILESS_MAIN(TstFoundation)
#include "tst_foundation.moc"
