#pragma once

#include <QByteArray>
#include <QString>

namespace Veloran {

// Puts a byte array into the Qt resource system as a single file, without touching
// the disk: the bytes are wrapped into a minimal uncompressed resource image (the
// format rcc writes) and registered from memory. Opening path() then goes through
// QFile's resource engine, exactly like media compiled into an application.
// Unregistered by the destructor; one instance per root at a time.
class InMemoryResource
{
public:
    explicit InMemoryResource(const QByteArray &content, const QString &root = QStringLiteral("/vr-mem"),
                              const QString &fileName = QStringLiteral("input"));
    ~InMemoryResource();

    InMemoryResource(const InMemoryResource &) = delete;
    InMemoryResource &operator=(const InMemoryResource &) = delete;

    bool isRegistered() const { return mRegistered; }
    // ":<root>/<file name>"
    QString path() const;

    // The resource image holding `content` as the one file of the root.
    static QByteArray buildImage(const QByteArray &content, const QString &fileName);

private:
    QByteArray mImage;
    QString mRoot;
    QString mFileName;
    bool mRegistered = false;
};

} // namespace Veloran
