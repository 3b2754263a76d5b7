// Publishes one small object through a QRemoteObjectHost so the remote object monitor
// can be tested against a real second process.
//   RemoteSourceHost <host url> <source name>
// Prints "ready" once the source is published, "failed" otherwise. It quits by itself
// after a minute so a test that dies never leaves it behind.
#include <QCoreApplication>
#include <QRemoteObjectHost>
#include <QTimer>

#include <cstdio>

class Beacon : public QObject
{
    Q_OBJECT
    Q_PROPERTY(int counter READ counter CONSTANT)
public:
    int counter() const { return 7; }
};

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QRemoteObjectHost host;
    Beacon beacon;
    const bool ready = argc == 3 && host.setHostUrl(QUrl(QString::fromLocal8Bit(argv[1])))
                       && host.enableRemoting(&beacon, QString::fromLocal8Bit(argv[2]));
    std::printf(ready ? "ready\n" : "failed\n");
    std::fflush(stdout);
    QTimer::singleShot(60000, &app, &QCoreApplication::quit);
    return ready ? app.exec() : 1;
}

#include "RemoteSourceHost.moc"
