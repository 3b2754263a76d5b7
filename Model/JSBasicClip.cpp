#include "JSBasicClip.h"

#include "Model/SpeedCurve.h"

namespace Veloran {

JSBasicClip::JSBasicClip(NLMapNodePtr node)
    : JSNode(std::move(node))
{
}

// One line per property: its key, and its default where absence does not read as 0,
// false or empty.
QString JSBasicClip::trackID() const { return stringValue(QStringLiteral("track_ref")); }
qint64 JSBasicClip::timelinePos() const { return int64Value(QStringLiteral("timeline_pos")); }
std::optional<qint64> JSBasicClip::rangeBegin() const { return opInt64Value(QStringLiteral("range_begin")); }
qint64 JSBasicClip::rangeLength() const { return int64Value(QStringLiteral("range_length")); }
double JSBasicClip::speed() const { return opDoubleValue(QStringLiteral("speed")).value_or(1.0); }
qint64 JSBasicClip::originalLength() const { return int64Value(QStringLiteral("original_length")); }
QString JSBasicClip::dirPath() const { return pathValue(QStringLiteral("dir_path")); }
QString JSBasicClip::rccPrefix() const { return stringValue(QStringLiteral("rcc_prefix")); }
QString JSBasicClip::source() const { return stringValue(QStringLiteral("source")); }
QString JSBasicClip::filePath() const { return pathValue(QStringLiteral("file_path")); }
bool JSBasicClip::disabled() const { return boolValue(QStringLiteral("disabled")); }
int JSBasicClip::streamIndex() const { return intValue(QStringLiteral("stream_index")); }
QList<QVariantMap> JSBasicClip::variableSpeed() const { return childListMaps(QStringLiteral("variableSpeed")); }

bool JSBasicClip::isVideo() const
{
    const QString clipType = type();
    if (clipType == QLatin1String("clip")) {
        const QString clipKind = kind();
        return clipKind == QLatin1String("video") || clipKind == QLatin1String("video_only")
            || clipKind == QLatin1String("audio_with_cover");
    }
    return clipType == QLatin1String("text") || clipType == QLatin1String("image")
        || clipType == QLatin1String("sticker");
}

bool JSBasicClip::isAudio() const
{
    if (type() != QLatin1String("clip"))
        return false;
    const QString clipKind = kind();
    return clipKind == QLatin1String("audio") || clipKind == QLatin1String("video")
        || clipKind == QLatin1String("audio_with_cover");
}

qint64 JSBasicClip::timelineLength() const
{
    const QList<QVariantMap> curve = variableSpeed();
    if (curve.isEmpty())
        return truncateToInt64(double(rangeLength()) / speed());

    QList<PointStruct> points;
    points.reserve(curve.size());
    for (const QVariantMap &point : curve)
        points.append(PointStruct::fromMap(point));
    return variableSpeedLength(points, rangeBegin().value_or(0), rangeLength(), originalLength());
}

float JSBasicClip::calPrevToIntersectDesireLength(float vp, float vq, float p, float q) const
{
    return normalSpeedCrossing(vp, vq, p, q);
}

float JSBasicClip::calculateEquation(double a, double b, double c, double d, QList<double> &roots) const
{
    return solveCubicInUnitRange(a, b, c, d, roots);
}

// The speed at `pos` of a piece [p, q] whose speed runs from vp to vq linearly in
// timeline time, the same profile the cuts of timelineLength() use:
// sqrt(vp² + (vq² - vp²)·(pos - p)/(q - p)), clamped to vp before p and vq after q.
float JSBasicClip::calculateSpeed(float vp, float vq, float p, float q, float pos) const
{
    return speedAtPosition(vp, vq, p, q, pos);
}

} // namespace Veloran
