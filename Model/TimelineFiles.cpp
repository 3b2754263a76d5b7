#include "TimelineFiles.h"

#include "Common/Helpers.h"
#include "Model/JsonDuplicateKeys.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QResource>
#include <QSet>
#include <QTextStream>

#include <mutex>

namespace Veloran {

namespace {

// Null for text that does not parse; a repeated key keeps its last value.
QJsonDocument parseJson(const QString &json)
{
    return parseJsonKeepingLastValues(json.toUtf8());
}

// Registers each resource file once per process, by its absolute path: Qt maps the
// file again on every registration, so asking for a folder's waveform again and
// again would otherwise grow the memory each time.
bool registerResourceOnce(const QString &rcc)
{
    static std::mutex mutex;
    static QSet<QString> registered;
    const QString path = QFileInfo(rcc).absoluteFilePath();
    std::lock_guard<std::mutex> locker(mutex);
    if (registered.contains(path))
        return true;
    if (!QResource::registerResource(rcc, QString()))
        return false;
    registered.insert(path);
    return true;
}

} // namespace

QString getFileContent(const QString &path)
{
    // Reading an unopened (or unnamed) file would give the same empty text, but Qt
    // warns about both, and these functions are meant to stay quiet.
    if (path.isEmpty())
        return {};
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QTextStream stream(&file);
    stream.setCodec("UTF-8");
    return stream.readAll();
}

void saveToFile(const QString &content, const QString &path)
{
    if (path.isEmpty())
        return;
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return;
    QTextStream stream(&file);
    stream.setCodec("UTF-8");
    stream << content;
    stream.flush();
    file.close();
}

QVariantMap jsonToVariantMap(const QString &json)
{
    const QJsonDocument document = parseJson(json);
    if (document.isNull())
        return {};
    return document.object().toVariantMap();
}

QVariantList jsonToVariantList(const QString &json)
{
    const QJsonDocument document = parseJson(json);
    if (document.isNull())
        return {};
    return document.array().toVariantList();
}

QString variantMapToJson(const QVariantMap &map, bool indented)
{
    const QByteArray bytes = QJsonDocument(QJsonObject::fromVariantMap(map))
                                 .toJson(indented ? QJsonDocument::Indented : QJsonDocument::Compact);
    return QString::fromUtf8(bytes.constData());
}

QString loadTimelineJsonFromPath(const QString &path)
{
    QVariantMap map = jsonToVariantMap(getFileContent(path));
    const QString previewKey = QStringLiteral("preview_param");
    const QString dirKey = QStringLiteral("timeline_dir");
    const QString dir = map.value(previewKey).toMap().value(dirKey).toString();
    if (dir == QLatin1String(".")) {
        QVariantMap preview = map.value(previewKey).toMap();
        preview.insert(dirKey, QFileInfo(path).dir().absolutePath());
        map.insert(previewKey, preview);
    }
    return variantMapToJson(map, true);
}

QString getTimelineFirstClipPath(const QVariantMap &timeline)
{
    const QVariantList clips = timeline.value(QStringLiteral("clips")).toList();
    if (clips.isEmpty())
        return {};
    return clips.first().toMap().value(QStringLiteral("file_path")).toString();
}

QString getRccSourcePath(const QString &dir, const QVariantMap &material)
{
    const QString rcc = appendPath(dir, QStringLiteral("resource.rcc"));
    if (!registerResourceOnce(rcc))
        return {};
    return appendPath(appendPath(QStringLiteral(":"), material.value(QStringLiteral("rcc_prefix")).toString()),
                      material.value(QStringLiteral("source")).toString());
}

QVariantMap getMaterialJsonMap(const QString &dir)
{
    const QVariantMap map = jsonToVariantMap(getFileContent(appendPath(dir, QStringLiteral("config.json"))));
    qDebug() << "jsonMap : " << map;
    return map;
}

} // namespace Veloran
