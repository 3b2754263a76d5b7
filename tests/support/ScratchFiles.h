#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>

// Whole-file reads and writes for tests that make their own broken or copied media.
namespace ScratchFiles {

// The file's bytes; empty when it cannot be read.
inline QByteArray read(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Writes `bytes` as the whole file; the path, or empty when that failed.
inline QString write(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size() ? path : QString();
}

} // namespace ScratchFiles
