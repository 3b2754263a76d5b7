#include "LogCapture.h"

#include "Common/RemoteObjectMonitor.h"
#include "Common/TagMonitor.h"
#include "Common/TagPoint.h"

#include <QProcess>
#include <QRegularExpression>
#include <QTcpServer>
#include <QtTest>

using namespace Veloran;

namespace {

constexpr int kWaitMs = 10000;
const QString kFound = QStringLiteral("tag monitor found: ");
const QString kLost = QStringLiteral("replica disconnectRemoteObject");

// The leak report of one assertEmpty() call.
QStringList leakReport(TagMonitor &monitor)
{
    LogCapture capture;
    monitor.assertEmpty();
    return capture.messages().filter(QRegularExpression(QStringLiteral("^tag monitor found: ")));
}

// The helper executable in a second process, publishing the source "Beacon" at a URL.
class SourceHost
{
public:
    ~SourceHost() { kill(); }
    bool start(const QString &url)
    {
        mProcess.start(QStringLiteral(DIAG_REMOTE_SOURCE_HOST), {url, QStringLiteral("Beacon")});
        QByteArray output;
        while (!output.contains('\n') && mProcess.waitForReadyRead(kWaitMs))
            output += mProcess.readAllStandardOutput();
        return output.startsWith("ready");
    }
    void kill()
    {
        mProcess.kill();
        mProcess.waitForFinished(kWaitMs);
    }

private:
    QProcess mProcess;
};

QString uniqueLocalUrl()
{
    static int counter = 0;
    return QStringLiteral("local:vrdiag-%1-%2").arg(QCoreApplication::applicationPid()).arg(++counter);
}

} // namespace

class TstDiagnostics : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void tagMonitorReportsLivingPointsInCreationOrder()
    {
        QSharedPointer<TagMonitor> monitor(new TagMonitor());
        monitor->setWeakSelf(monitor);
        QCOMPARE(leakReport(*monitor), QStringList());
        QSharedPointer<TagPoint> a = monitor->makeTagPoint("a");
        QSharedPointer<TagPoint> unnamed = monitor->makeTagPoint(nullptr);
        QSharedPointer<TagPoint> accented = monitor->makeTagPoint("clip \xc3\xa9t\xc3\xa9");
        a.reset();
        const QStringList expected{kFound, kFound + QString::fromUtf8("clip \xc3\xa9t\xc3\xa9")};
        QCOMPARE(leakReport(*monitor), expected);
        QCOMPARE(leakReport(*monitor), expected); // reporting removes nothing

        // Manual registration keeps duplicates and ignores null; removal takes out one
        // entry at a time and the point's destructor takes the last.
        monitor->addTagPoint(accented.data());
        monitor->addTagPoint(nullptr);
        monitor->removeTagPoint(nullptr);
        monitor->removeTagPoint(unnamed.data());
        QCOMPARE(leakReport(*monitor), (QStringList{expected[1], expected[1]}));
        monitor->removeTagPoint(accented.data());
        accented.reset();
        unnamed.reset();
        QCOMPARE(leakReport(*monitor), QStringList());
    }

    void tagPointsMayOutliveTheirMonitor()
    {
        QSharedPointer<TagMonitor> monitor(new TagMonitor());
        monitor->setWeakSelf(monitor);
        QSharedPointer<TagPoint> point = monitor->makeTagPoint("first");
        monitor.reset();
        point.reset(); // must not reach into the freed monitor (AddressSanitizer checks)

        // Misuse: without setWeakSelf the point has nothing to register with, yet works.
        QSharedPointer<TagMonitor> careless(new TagMonitor());
        QSharedPointer<TagPoint> orphan = careless->makeTagPoint("orphan");
        QVERIFY(orphan->name() == "orphan" && leakReport(*careless).isEmpty());
    }

    void remoteMonitorReportsLossOfTheSource_data()
    {
        QTest::addColumn<QString>("url");
        QTest::newRow("local") << uniqueLocalUrl();
        QTcpServer probe; // a loopback port nobody listens on right now
        QVERIFY(probe.listen(QHostAddress::LocalHost, 0));
        QTest::newRow("tcp") << QStringLiteral("tcp://127.0.0.1:%1").arg(probe.serverPort());
    }

    void remoteMonitorReportsLossOfTheSource()
    {
        QFETCH(QString, url);
        LogCapture capture;
        RemoteObjectMonitor monitor;
        QSignalSpy lost(&monitor, &RemoteObjectMonitor::disconnectRemoteObject);
        // Nobody answers yet, then the host does not publish the asked name: refused.
        QVERIFY(!monitor.startMonitoring(url, QStringLiteral("Beacon"), 300));
        SourceHost host;
        QVERIFY2(host.start(url), qPrintable(url));
        QVERIFY(!monitor.startMonitoring(url, QStringLiteral("NoSuchSource"), 300));
        QVERIFY(!capture.hasMessage(QStringLiteral("replica initialized")));

        QVERIFY(monitor.startMonitoring(url, QStringLiteral("Beacon"), kWaitMs));
        QTRY_VERIFY_WITH_TIMEOUT(capture.hasMessage(QStringLiteral("replicate state changed: Valid")), kWaitMs);
        QTRY_COMPARE_WITH_TIMEOUT(capture.messages().count(QStringLiteral("replica initialized")), 1, kWaitMs);
        QVERIFY(!capture.hasMessage(kLost) && lost.isEmpty()); // a change to a valid state logs only the state

        host.kill();
        QVERIFY(lost.count() > 0 || lost.wait(kWaitMs));
        const QStringList messages = capture.messages();
        const int suspect = messages.indexOf(QStringLiteral("replicate state changed: Suspect"));
        QVERIFY2(suspect >= 0, qPrintable(messages.join(QLatin1Char('|'))));
        QCOMPARE(messages.value(suspect + 1), kLost);
        QCOMPARE(messages.count(kLost), lost.count()); // one line and one signal per invalidating change
    }

    void remoteMonitorSwitchingOrTearingDownIsNoLoss()
    {
        const QString firstUrl = uniqueLocalUrl();
        const QString secondUrl = uniqueLocalUrl();
        SourceHost first;
        SourceHost second;
        QVERIFY(first.start(firstUrl) && second.start(secondUrl));
        LogCapture capture;
        int losses = 0;
        QObject owner;
        auto *monitor = new RemoteObjectMonitor();
        connect(monitor, &RemoteObjectMonitor::disconnectRemoteObject, &owner, [&losses] { ++losses; });
        QVERIFY(monitor->startMonitoring(firstUrl, QStringLiteral("Beacon")));
        QTRY_VERIFY_WITH_TIMEOUT(capture.hasMessage(QStringLiteral("replica initialized")), kWaitMs);
        capture.clear();
        QVERIFY(monitor->startMonitoring(secondUrl, QStringLiteral("Beacon")));
        QTRY_VERIFY_WITH_TIMEOUT(capture.hasMessage(QStringLiteral("replicate state changed: Valid")), kWaitMs);
        delete monitor;
        QCOMPARE(losses, 0);
        QVERIFY(!capture.hasMessage(kLost));

        // A URL that no client connection can be made for is refused without waiting.
        RemoteObjectMonitor refusing;
        QVERIFY(!refusing.startMonitoring(QStringLiteral("nosuchscheme://127.0.0.1:1"), QStringLiteral("Beacon"))
                && !refusing.startMonitoring(QString(), QStringLiteral("Beacon")));
    }
};

QTEST_GUILESS_MAIN(TstDiagnostics)
#include "tst_diagnostics.moc"
