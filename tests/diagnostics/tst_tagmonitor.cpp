#include "LogCapture.h"

#include "Common/TagMonitor.h"
#include "Common/TagPoint.h"

#include <QtTest>

using Veloran::TagMonitor;
using Veloran::TagPoint;

namespace {

QSharedPointer<TagMonitor> makeMonitor()
{
    QSharedPointer<TagMonitor> monitor(new TagMonitor());
    monitor->setWeakSelf(monitor);
    return monitor;
}

// The leak report of one assertEmpty() call.
QStringList leakReport(TagMonitor &monitor)
{
    LogCapture capture;
    monitor.assertEmpty();
    QStringList lines;
    for (const QString &message : capture.messages()) {
        if (message.startsWith(QStringLiteral("tag monitor found:")))
            lines.append(message);
    }
    return lines;
}

} // namespace

class TstTagMonitor : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void reportsLivingPointsInCreationOrder()
    {
        QSharedPointer<TagMonitor> monitor = makeMonitor();
        QCOMPARE(leakReport(*monitor), QStringList());

        QSharedPointer<TagPoint> a = monitor->makeTagPoint("a");
        QSharedPointer<TagPoint> b = monitor->makeTagPoint("b");
        QSharedPointer<TagPoint> c = monitor->makeTagPoint("c");
        QCOMPARE(a->name(), QStringLiteral("a"));

        a.reset();
        const QStringList expected{QStringLiteral("tag monitor found: b"), QStringLiteral("tag monitor found: c")};
        QCOMPARE(leakReport(*monitor), expected);
        // Reporting removes nothing.
        QCOMPARE(leakReport(*monitor), expected);

        c.reset();
        QCOMPARE(leakReport(*monitor), QStringList{QStringLiteral("tag monitor found: b")});
        b.reset();
        QCOMPARE(leakReport(*monitor), QStringList());
    }

    void namesAreUtf8AndMayBeMissing()
    {
        QSharedPointer<TagMonitor> monitor = makeMonitor();
        QSharedPointer<TagPoint> unnamed = monitor->makeTagPoint(nullptr);
        QSharedPointer<TagPoint> accented = monitor->makeTagPoint("clip \xc3\xa9t\xc3\xa9");

        QVERIFY(unnamed->name().isEmpty());
        QCOMPARE(accented->name(), QString::fromUtf8("clip \xc3\xa9t\xc3\xa9"));
        // The unnamed point is registered all the same.
        QCOMPARE(leakReport(*monitor),
                 (QStringList{QStringLiteral("tag monitor found: "), QString::fromUtf8("tag monitor found: clip \xc3\xa9t\xc3\xa9")}));
    }

    void pointsMayOutliveTheirMonitor()
    {
        QSharedPointer<TagMonitor> monitor = makeMonitor();
        QSharedPointer<TagPoint> first = monitor->makeTagPoint("first");
        QSharedPointer<TagPoint> second = monitor->makeTagPoint("second");
        QPointer<TagMonitor> watch(monitor.data());

        monitor.reset();
        QVERIFY(watch.isNull());
        // Destroying the points must not reach into the freed monitor (AddressSanitizer
        // builds turn any such access into a failure).
        QPointer<TagPoint> firstWatch(first.data());
        first.reset();
        second.reset();
        QVERIFY(firstWatch.isNull());
    }

    void manualRegistrationKeepsDuplicatesAndIgnoresNull()
    {
        QSharedPointer<TagMonitor> monitor = makeMonitor();
        QSharedPointer<TagPoint> point = monitor->makeTagPoint("twice");

        monitor->addTagPoint(point.data());
        monitor->addTagPoint(nullptr);
        monitor->removeTagPoint(nullptr);
        QCOMPARE(leakReport(*monitor).size(), 2);

        // Removal takes out one entry at a time; the point's destructor takes the last.
        monitor->removeTagPoint(point.data());
        QCOMPARE(leakReport(*monitor), QStringList{QStringLiteral("tag monitor found: twice")});
        point.reset();
        QCOMPARE(leakReport(*monitor), QStringList());
    }

    void monitorWithoutWeakSelfHandsOutUnregisteredPoints()
    {
        // Misuse: setWeakSelf was never called. The point has nothing to register with;
        // it must still be usable and destroyable.
        QSharedPointer<TagMonitor> monitor(new TagMonitor());
        QSharedPointer<TagPoint> point = monitor->makeTagPoint("orphan");
        QCOMPARE(point->name(), QStringLiteral("orphan"));
        QCOMPARE(leakReport(*monitor), QStringList());
        point.reset();
    }
};

QTEST_GUILESS_MAIN(TstTagMonitor)
#include "tst_tagmonitor.moc"
