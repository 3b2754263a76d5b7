#include "InMemoryResource.h"

#include <QHash>
#include <QResource>
#include <QtEndian>

namespace Veloran {

namespace {

void put16(QByteArray &out, quint16 value)
{
    char bytes[2];
    qToBigEndian(value, bytes);
    out.append(bytes, 2);
}

void put32(QByteArray &out, quint32 value)
{
    char bytes[4];
    qToBigEndian(value, bytes);
    out.append(bytes, 4);
}

} // namespace

QByteArray InMemoryResource::buildImage(const QByteArray &content, const QString &fileName)
{
    // Version 1 layout: a 20-byte header, then the tree (14 bytes per node, the
    // root directory first), the names table and the data table. All numbers are
    // big-endian; names are UTF-16 and found by their qt_hash.
    const quint32 headerSize = 20;
    const quint32 treeSize = 2 * 14;

    QByteArray tree;
    put32(tree, 0);    // root: name (unused)
    put16(tree, 0x02); // directory
    put32(tree, 1);    // one child
    put32(tree, 1);    // starting at node 1
    put32(tree, 0);    // the file: name at offset 0 of the names table
    put16(tree, 0);    // plain, uncompressed file
    put16(tree, 0);    // any country
    put16(tree, 1);    // the C language: matches every locale
    put32(tree, 0);    // data at offset 0 of the data table

    QByteArray names;
    put16(names, static_cast<quint16>(fileName.size()));
    put32(names, qt_hash(fileName));
    for (const QChar c : fileName)
        put16(names, c.unicode());

    QByteArray image("qres");
    put32(image, 1);                                  // version
    put32(image, headerSize);                         // tree
    put32(image, headerSize + treeSize + names.size()); // data
    put32(image, headerSize + treeSize);              // names
    image += tree;
    image += names;
    put32(image, static_cast<quint32>(content.size()));
    image += content;
    return image;
}

InMemoryResource::InMemoryResource(const QByteArray &content, const QString &root, const QString &fileName)
    : mImage(buildImage(content, fileName))
    , mRoot(root)
    , mFileName(fileName)
{
    mRegistered = QResource::registerResource(reinterpret_cast<const uchar *>(mImage.constData()), mRoot);
}

InMemoryResource::~InMemoryResource()
{
    if (mRegistered)
        QResource::unregisterResource(reinterpret_cast<const uchar *>(mImage.constData()), mRoot);
}

QString InMemoryResource::path() const
{
    return QLatin1Char(':') + mRoot + QLatin1Char('/') + mFileName;
}

} // namespace Veloran
