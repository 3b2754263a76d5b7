#include "JSVideoClip.h"

namespace Veloran {

JSVideoClip::JSVideoClip(NLMapNodePtr node)
    : JSPicClip(std::move(node))
{
}

// The background reads its default only when the key is absent: an empty string stays empty.
QString JSVideoClip::backgroundStyle() const
{
    return opStringValue(QStringLiteral("background_style")).value_or(QStringLiteral("color"));
}

QString JSVideoClip::backgroundValue() const
{
    return opStringValue(QStringLiteral("background_value")).value_or(QStringLiteral("#000000"));
}

QString JSVideoClip::backgroundFillMode() const
{
    return opStringValue(QStringLiteral("background_fill_mode")).value_or(QStringLiteral("aspect_fill"));
}

QList<QVariantMap> JSVideoClip::filters() const { return childListMaps(QStringLiteral("video_filters")); }
QList<QVariantMap> JSVideoClip::subTitle() const { return childListMaps(QStringLiteral("subtitles")); }

} // namespace Veloran
