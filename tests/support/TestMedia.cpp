#include "TestMedia.h"

#include <QDir>
#include <QtGlobal>

namespace TestMedia {

QString dir()
{
    const QString fromEnv = qEnvironmentVariable("VR_TEST_MEDIA_DIR");
    return fromEnv.isEmpty() ? QDir::current().absoluteFilePath(QStringLiteral("test-media")) : fromEnv;
}

QString path(const QString &name)
{
    return QDir(dir()).absoluteFilePath(name);
}

QString scratchDir(const QString &testName)
{
    QDir folder(QDir::current().absoluteFilePath(QStringLiteral("scratch/") + testName));
    folder.removeRecursively();
    QDir().mkpath(folder.absolutePath());
    return folder.absolutePath();
}

} // namespace TestMedia
