// Publishes one small object through a QRemoteObjectHost so the remote object monitor can
// be tested against a real second process.
//   RemoteSourceHost <host url> <source name>
// Prints "ready" once the source is published, "failed" if the host cannot listen. It
// quits by itself after a minute so a test that dies never leaves it behind.
#include <QCoreApplication>
#include <QRemoteObjectHost>
#include <QTextStream>
#include <QTimer>
#include <QUrl>

#include <cstdio>

class Beacon : public QObject
{
    Q_OBJECT
    Q_PROPERTY(int counter READ counter NOTIFY counterChanged)
public:
    int counter() const { return mCounter; }

Q_SIGNALS:
    void counterChanged(int counter);

private:
    int mCounter = 7;
};

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    QTextStream out(stdout);
    if (args.size() != 3) {
        out << "usage: RemoteSourceHost <host url> <source name>\n";
        return 2;
    }

    QRemoteObjectHost host;
    Beacon beacon;
    if (!host.setHostUrl(QUrl(args.at(1))) || !host.enableRemoting(&beacon, args.at(2))) {
        out << "failed\n";
        return 1;
    }
    out << "ready\n";
    out.flush();

    QTimer::singleShot(60000, &app, &QCoreApplication::quit);
    return app.exec();
}

#include "RemoteSourceHost.moc"
