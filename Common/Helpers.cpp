#include "Helpers.h"

#include "GpuModel.h"

#include <QCryptographicHash>
#include <QDir>
#include <QImageReader>
#include <QUuid>

#include <cstdlib>
#include <type_traits>

namespace Veloran {

namespace {

// |a - b| in a type that holds it: integers far apart (INT_MIN and 1) would overflow
// a signed subtraction, so integral distances are taken in the unsigned type.
template <typename T>
auto distanceBetween(T a, T b)
{
    if constexpr (std::is_integral_v<T>) {
        using U = std::make_unsigned_t<T>;
        return a > b ? U(U(a) - U(b)) : U(U(b) - U(a));
    } else {
        return a > b ? a - b : b - a;
    }
}

template <typename T>
T getNearestValue_Inner(const QList<T> &list, T target)
{
    if (list.isEmpty())
        return target;
    using Distance = decltype(distanceBetween(target, target));
    QList<Distance> distances;
    distances.reserve(list.size());
    for (const T &value : list)
        distances.append(distanceBetween(value, target));
    // Only a strictly smaller distance replaces the best, so ties keep the earliest.
    Distance best = distances.first();
    for (const Distance &distance : distances) {
        if (distance < best)
            best = distance;
    }
    return list.at(distances.indexOf(best));
}

} // namespace

int getNearestValue(const QList<int> &list, int target)
{
    return getNearestValue_Inner(list, target);
}

double getNearestValue(const QList<double> &list, double target)
{
    return getNearestValue_Inner(list, target);
}

long long getNearestValue(const QList<long long> &list, long long target)
{
    return getNearestValue_Inner(list, target);
}

QString md5FromQUuid()
{
    const QByteArray uuid = QUuid::createUuid().toString().toUtf8();
    return QString::fromLatin1(QCryptographicHash::hash(uuid, QCryptographicHash::Md5).toHex());
}

bool isUtf8String(const char *text)
{
    const auto *p = reinterpret_cast<const unsigned char *>(text);
    if (!p)
        return true;
    while (*p) {
        const unsigned char lead = *p;
        if (lead < 0x80) {
            ++p;
            continue;
        }
        int length = 0;
        uint32_t codePoint = 0;
        uint32_t minimum = 0;
        if (lead >= 0xC2 && lead <= 0xDF) {
            length = 2;
            codePoint = lead & 0x1F;
            minimum = 0x80;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            length = 3;
            codePoint = lead & 0x0F;
            minimum = 0x800;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            length = 4;
            codePoint = lead & 0x07;
            minimum = 0x10000;
        } else {
            return false; // stray continuation, 0xC0/0xC1, or 0xF5 and above
        }
        for (int i = 1; i < length; ++i) {
            const unsigned char next = p[i];
            if (next < 0x80 || next > 0xBF) // also stops at the terminating NUL
                return false;
            codePoint = (codePoint << 6) | (next & 0x3F);
        }
        if (codePoint < minimum || (codePoint >= 0xD800 && codePoint <= 0xDFFF) || codePoint > 0x10FFFF)
            return false;
        p += length;
    }
    return true;
}

bool isSocialType(const QString &name)
{
    static const QStringList kNames = {QStringLiteral("YouTube"), QStringLiteral("Instagram"),
                                      QStringLiteral("TikTok"),  QStringLiteral("Facebook"),
                                      QStringLiteral("Likee"),   QStringLiteral("Vimeo")};
    return kNames.contains(name, Qt::CaseSensitive);
}

QString appendPath(const QString &a, const QString &b)
{
    return QDir::cleanPath(a + QDir::separator() + b);
}

bool isImage(const QString &path)
{
    QImageReader reader(path);
    reader.setDecideFormatFromContent(true);
    if (!reader.canRead())
        return false;
    const QSize size = reader.size();
    if (size.width() < 0 || size.height() < 0)
        return false;
    return reader.format() != "gif";
}

int toEvenValue(int x)
{
    return (x + 1) & ~1;
}

int closestNumber(int n, int m)
{
    const int q = n / m;
    const int c1 = q * m;
    const int c2 = (n * m > 0) ? (q + 1) * m : (q - 1) * m;
    return std::abs(n - c1) < std::abs(n - c2) ? c1 : c2;
}

QString getCodecGpuName(const QString &description)
{
    QString vendor;
    // Vendor names are matched as written: "amd64" in a platform string is no GPU.
    if (description.contains(QLatin1String("NVIDIA")))
        vendor = QStringLiteral("NVIDIA");
    else if (description.contains(QLatin1String("AMD")))
        vendor = QStringLiteral("AMD");
    if (vendor.isEmpty())
        return {};
    for (const QVariantMap &model : GpuModel::getSpecifiedGpuModelList(vendor)) {
        const QString name = model.value(QStringLiteral("name")).toString();
        if (!name.isEmpty() && description.contains(name))
            return name;
    }
    return vendor;
}

} // namespace Veloran
