#include "LogCapture.h"

#include "Common/RemoteObjectMonitor.h"
#include "Common/TagMonitor.h"
#include "Common/TagPoint.h"

#include <QtTest>

#include <memory>

using namespace Veloran;

namespace {

constexpr int kWaitMs = 10000;
const QString kLost = QStringLiteral("replica disconnectRemoteObject");
const QString kValid = QStringLiteral("replicate state changed: Valid");

// The leak report of one assertEmpty() call.
QStringList leakReport(TagMonitor &monitor)
{
    LogCapture capture;
    monitor.assertEmpty();
    return capture.messages().filter(QRegularExpression(QStringLiteral("^tag monitor found: ")));
}

// The helper executable in a second process, publishing the source "Beacon" at `url`.
struct HostProcess : QProcess
{
    ~HostProcess() override
    {
        kill();
        waitForFinished(kWaitMs);
    }
};
using Host = std::unique_ptr<HostProcess>;

Host startHost(const QString &url)
{
    Host host(new HostProcess);
    host->start(QStringLiteral(DIAG_REMOTE_SOURCE_HOST), {url, QStringLiteral("Beacon")});
    while (!host->canReadLine() && host->waitForReadyRead(kWaitMs)) {
    }
    return host->readLine() == "ready\n" ? std::move(host) : nullptr;
}

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
        QSharedPointer<TagPoint> a = monitor->makeTagPoint("a");
        QSharedPointer<TagPoint> unnamed = monitor->makeTagPoint(nullptr);
        QSharedPointer<TagPoint> accented = monitor->makeTagPoint("clip \xc3\xa9t\xc3\xa9");
        a.reset();
        const QString found = QString::fromUtf8("tag monitor found: clip \xc3\xa9t\xc3\xa9");
        QCOMPARE(leakReport(*monitor), QStringList({"tag monitor found: ", found}));

        // Registration keeps duplicates and ignores null; each removal (or the destructor) takes one.
        monitor->addTagPoint(accented.data());
        monitor->addTagPoint(nullptr);
        monitor->removeTagPoint(unnamed.data());
        QCOMPARE(leakReport(*monitor), QStringList({found, found}));
        monitor->removeTagPoint(accented.data());
        accented.reset();
        QCOMPARE(leakReport(*monitor), QStringList());

        // Points outlive their monitor (the sanitizer build checks); without setWeakSelf none registers.
        monitor.reset();
        unnamed.reset();
        QSharedPointer<TagMonitor> careless(new TagMonitor());
        QSharedPointer<TagPoint> orphan = careless->makeTagPoint("orphan");
        QVERIFY(orphan->name() == "orphan" && leakReport(*careless).isEmpty());
    }

    void remoteMonitorReportsLossOfTheSource()
    {
        const QString url = uniqueLocalUrl();
        LogCapture capture;
        RemoteObjectMonitor monitor;
        QSignalSpy lost(&monitor, &RemoteObjectMonitor::disconnectRemoteObject);
        // Nobody answers yet, then the host does not publish the asked name: refused.
        QVERIFY(!monitor.startMonitoring(url, QStringLiteral("Beacon"), 300));
        Host host = startHost(url);
        QVERIFY2(host, qPrintable(url));
        QVERIFY(!monitor.startMonitoring(url, QStringLiteral("NoSuchSource"), 300));
        QVERIFY(!capture.hasMessage(QStringLiteral("replica initialized")));

        QVERIFY(monitor.startMonitoring(url, QStringLiteral("Beacon"), kWaitMs));
        QTRY_VERIFY_WITH_TIMEOUT(capture.hasMessage(kValid), kWaitMs);
        QTRY_COMPARE_WITH_TIMEOUT(capture.messages().count(QStringLiteral("replica initialized")), 1, kWaitMs);
        QVERIFY(!capture.hasMessage(kLost) && lost.isEmpty()); // a change to a valid state logs only the state

        host.reset();
        QVERIFY(lost.count() > 0 || lost.wait(kWaitMs));
        const QStringList messages = capture.messages();
        const int suspect = messages.indexOf(QStringLiteral("replicate state changed: Suspect"));
        QVERIFY2(suspect >= 0, qPrintable(messages.join(QLatin1Char('|'))));
        QCOMPARE(messages.value(suspect + 1), kLost);
        QCOMPARE(messages.count(kLost), lost.count()); // one line and one signal per invalidating change
    }

    void remoteMonitorSwitchingOrTearingDownIsNoLoss()
    {
        const QString firstUrl = uniqueLocalUrl(), secondUrl = uniqueLocalUrl();
        Host first = startHost(firstUrl), second = startHost(secondUrl);
        QVERIFY(first && second);
        LogCapture capture;
        auto *monitor = new RemoteObjectMonitor();
        QSignalSpy lost(monitor, &RemoteObjectMonitor::disconnectRemoteObject);
        QVERIFY(monitor->startMonitoring(firstUrl, QStringLiteral("Beacon")));
        QTRY_VERIFY_WITH_TIMEOUT(capture.hasMessage(kValid), kWaitMs);
        capture.clear();
        QVERIFY(monitor->startMonitoring(secondUrl, QStringLiteral("Beacon")));
        QTRY_VERIFY_WITH_TIMEOUT(capture.hasMessage(kValid), kWaitMs);
        delete monitor;
        QVERIFY(lost.isEmpty() && !capture.hasMessage(kLost));

        // A URL that no client connection can be made for is refused without waiting.
        RemoteObjectMonitor refusing;
        QVERIFY(!refusing.startMonitoring(QStringLiteral("nosuchscheme://127.0.0.1:1"), QStringLiteral("Beacon"))
                && !refusing.startMonitoring(QString(), QStringLiteral("Beacon")));
    }
};

QTEST_GUILESS_MAIN(TstDiagnostics)
#include "tst_diagnostics.moc"
