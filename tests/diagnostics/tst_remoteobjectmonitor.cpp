#include "LogCapture.h"

#include "Common/RemoteObjectMonitor.h"

#include <QProcess>
#include <QTcpServer>
#include <QtTest>

using Veloran::RemoteObjectMonitor;

namespace {

constexpr int kWaitMs = 10000;

// The helper executable in a second process, publishing one source object at a URL.
// Killed when the test is done with it, whatever happened.
class SourceHost
{
public:
    ~SourceHost() { kill(); }

    bool start(const QString &url, const QString &name)
    {
        mProcess.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        mProcess.start(QStringLiteral(DIAG_REMOTE_SOURCE_HOST), {url, name});
        if (!mProcess.waitForStarted(kWaitMs))
            return false;
        QByteArray output;
        while (!output.contains('\n') && mProcess.waitForReadyRead(kWaitMs))
            output += mProcess.readAllStandardOutput();
        return output.startsWith("ready");
    }

    void kill()
    {
        if (mProcess.state() != QProcess::NotRunning) {
            mProcess.kill();
            mProcess.waitForFinished(kWaitMs);
        }
    }

private:
    QProcess mProcess;
};

QString uniqueLocalUrl(const char *tag)
{
    static int counter = 0;
    return QStringLiteral("local:vrdiag-%1-%2-%3").arg(QCoreApplication::applicationPid()).arg(tag).arg(++counter);
}

// A loopback port nobody listens on right now.
quint16 freeLoopbackPort()
{
    QTcpServer probe;
    if (!probe.listen(QHostAddress::LocalHost, 0))
        return 0;
    return probe.serverPort();
}

int countOf(const LogCapture &capture, const QString &text)
{
    return capture.messages().count(text);
}

} // namespace

class TstRemoteObjectMonitor : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void reportsLossOfTheSource_data()
    {
        QTest::addColumn<QString>("url");
        QTest::newRow("local") << uniqueLocalUrl("loss");
        const quint16 port = freeLoopbackPort();
        QVERIFY(port != 0);
        QTest::newRow("tcp") << QStringLiteral("tcp://127.0.0.1:%1").arg(port);
    }

    void reportsLossOfTheSource()
    {
        QFETCH(QString, url);
        SourceHost host;
        QVERIFY2(host.start(url, QStringLiteral("Beacon")), qPrintable(url));

        LogCapture capture;
        RemoteObjectMonitor monitor;
        QSignalSpy lost(&monitor, &RemoteObjectMonitor::disconnectRemoteObject);
        QVERIFY(monitor.startMonitoring(url, QStringLiteral("Beacon")));

        QTRY_VERIFY_WITH_TIMEOUT(capture.hasMessage(QStringLiteral("replica initialized")), kWaitMs);
        QTRY_VERIFY_WITH_TIMEOUT(capture.hasMessage(QStringLiteral("replicate state changed: Valid")), kWaitMs);
        // A change to a valid state logs only the state line.
        QCOMPARE(countOf(capture, QStringLiteral("replica disconnectRemoteObject")), 0);
        QCOMPARE(lost.count(), 0);

        host.kill();
        QVERIFY(lost.count() > 0 || lost.wait(kWaitMs));
        const QStringList messages = capture.messages();
        const int suspect = messages.indexOf(QStringLiteral("replicate state changed: Suspect"));
        QVERIFY2(suspect >= 0, qPrintable(messages.join(QLatin1Char('|'))));
        QCOMPARE(messages.value(suspect + 1), QStringLiteral("replica disconnectRemoteObject"));
        // One log line and one signal per invalidating change.
        QCOMPARE(countOf(capture, QStringLiteral("replica disconnectRemoteObject")), lost.count());
    }

    void restartingReplacesTheWatchedSource()
    {
        const QString firstUrl = uniqueLocalUrl("first");
        const QString secondUrl = uniqueLocalUrl("second");
        SourceHost first;
        SourceHost second;
        QVERIFY(first.start(firstUrl, QStringLiteral("Beacon")));
        QVERIFY(second.start(secondUrl, QStringLiteral("Beacon")));

        LogCapture capture;
        RemoteObjectMonitor monitor;
        QSignalSpy lost(&monitor, &RemoteObjectMonitor::disconnectRemoteObject);
        QVERIFY(monitor.startMonitoring(firstUrl, QStringLiteral("Beacon")));
        QTRY_VERIFY_WITH_TIMEOUT(capture.hasMessage(QStringLiteral("replica initialized")), kWaitMs);

        // Letting go of the first source is not a loss.
        capture.clear();
        QVERIFY(monitor.startMonitoring(secondUrl, QStringLiteral("Beacon")));
        QCOMPARE(lost.count(), 0);
        QTRY_VERIFY_WITH_TIMEOUT(capture.hasMessage(QStringLiteral("replica initialized")), kWaitMs);
        QCOMPARE(countOf(capture, QStringLiteral("replica initialized")), 1);
        QCOMPARE(lost.count(), 0);

        second.kill();
        QVERIFY(lost.wait(kWaitMs));
        QVERIFY(capture.hasMessage(QStringLiteral("replica disconnectRemoteObject")));
    }

    void tearingDownIsNotALoss()
    {
        const QString url = uniqueLocalUrl("teardown");
        SourceHost host;
        QVERIFY(host.start(url, QStringLiteral("Beacon")));

        LogCapture capture;
        int losses = 0;
        QObject owner;
        auto *monitor = new RemoteObjectMonitor();
        connect(monitor, &RemoteObjectMonitor::disconnectRemoteObject, &owner, [&losses] { ++losses; });
        QVERIFY(monitor->startMonitoring(url, QStringLiteral("Beacon")));
        QTRY_VERIFY_WITH_TIMEOUT(capture.hasMessage(QStringLiteral("replicate state changed: Valid")), kWaitMs);

        delete monitor;
        QCOMPARE(losses, 0);
        QVERIFY(!capture.hasMessage(QStringLiteral("replica disconnectRemoteObject")));
    }

    // A well-formed local: or tcp:// address where nobody answers is refused after the
    // wait, and so is a host that does not publish the asked name; once the host is up,
    // asking again succeeds.
    void refusesAnAddressNobodyAnswersAt_data()
    {
        QTest::addColumn<QString>("url");
        QTest::newRow("local") << uniqueLocalUrl("late");
        const quint16 port = freeLoopbackPort();
        QVERIFY(port != 0);
        QTest::newRow("tcp") << QStringLiteral("tcp://127.0.0.1:%1").arg(port);
    }

    void refusesAnAddressNobodyAnswersAt()
    {
        QFETCH(QString, url);
        constexpr int kShortWaitMs = 300;
        LogCapture capture;
        RemoteObjectMonitor monitor;
        QSignalSpy lost(&monitor, &RemoteObjectMonitor::disconnectRemoteObject);
        QVERIFY(!monitor.startMonitoring(url, QStringLiteral("Beacon"), kShortWaitMs));
        QVERIFY(!capture.hasMessage(QStringLiteral("replica initialized")));

        SourceHost host;
        QVERIFY(host.start(url, QStringLiteral("Beacon")));
        QVERIFY(!monitor.startMonitoring(url, QStringLiteral("NoSuchSource"), kShortWaitMs));
        QVERIFY(!capture.hasMessage(QStringLiteral("replica initialized")));
        QCOMPARE(lost.count(), 0);

        QVERIFY(monitor.startMonitoring(url, QStringLiteral("Beacon"), kWaitMs));
        QTRY_VERIFY_WITH_TIMEOUT(capture.hasMessage(QStringLiteral("replicate state changed: Valid")), kWaitMs);
        QCOMPARE(countOf(capture, QStringLiteral("replica initialized")), 1);
        QCOMPARE(lost.count(), 0);

        host.kill();
        QVERIFY(lost.wait(kWaitMs));
    }

    // A URL that no client connection can be made for is refused without waiting.
    void refusesUrlsNoNodeCanServe()
    {
        LogCapture capture; // keeps Qt's own warnings about the URLs out of the test output
        RemoteObjectMonitor monitor;
        QSignalSpy lost(&monitor, &RemoteObjectMonitor::disconnectRemoteObject);
        QVERIFY(!monitor.startMonitoring(QStringLiteral("nosuchscheme://127.0.0.1:1"), QStringLiteral("Beacon")));
        QVERIFY(!monitor.startMonitoring(QString(), QStringLiteral("Beacon")));
        QVERIFY(!monitor.startMonitoring(QStringLiteral("not a url at all"), QStringLiteral("Beacon")));
        QCOMPARE(lost.count(), 0);
    }
};

QTEST_GUILESS_MAIN(TstRemoteObjectMonitor)
#include "tst_remoteobjectmonitor.moc"
