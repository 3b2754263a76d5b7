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
    explicit InMemoryResource(const QByteArray &content, const QString &root = QStringLiteral("/vr-mem"));
    ~InMemoryResource();

    InMemoryResource(const InMemoryResource &) = delete;
    InMemoryResource &operator=(const InMemoryResource &) = delete;

    bool isRegistered() const { return mRegistered; }
    // ":<root>/input"
    QString path() const;

    // The resource image holding `content` as the one file "input" of the root.
    static QByteArray buildImage(const QByteArray &content);

private:
    QByteArray mImage;
    QString mRoot;
    bool mRegistered = false;
};

} // namespace Veloran
