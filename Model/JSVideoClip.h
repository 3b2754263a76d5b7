#pragma once

#include "Model/JSPicClip.h"
#include "vrfetcher_export.h"

#include <QList>
#include <QString>
#include <QVariantMap>

namespace Veloran {

/// A video clip: its filters, background and subtitles.
class VRFETCHER_EXPORT JSVideoClip : public JSPicClip
{
public:
    /// A view over `node`; a null node reads every value as absent.
    explicit JSVideoClip(NLMapNodePtr node = NLMapNodePtr());

    QList<QVariantMap> filters() const;     ///< the "video_filters" list; empty without it
    QString backgroundStyle() const;        ///< "background_style", "color" when absent
    QString backgroundValue() const;        ///< "background_value", "#000000" when absent
    QString backgroundFillMode() const;     ///< "background_fill_mode", "aspect_fill" when absent
    QList<QVariantMap> subTitle() const;    ///< the "subtitles" list; empty without it
};

} // namespace Veloran
