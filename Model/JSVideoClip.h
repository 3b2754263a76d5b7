#pragma once

#include "Model/JSPicClip.h"
#include "vrfetcher_export.h"

#include <QList>
#include <QString>
#include <QVariantMap>

namespace Veloran {

// A video clip: its filters, background and subtitles.
class VRFETCHER_EXPORT JSVideoClip : public JSPicClip
{
public:
    explicit JSVideoClip(NLMapNodePtr node = NLMapNodePtr());

    QList<QVariantMap> filters() const;
    QString backgroundStyle() const;
    QString backgroundValue() const;
    QString backgroundFillMode() const;
    QList<QVariantMap> subTitle() const;
};

} // namespace Veloran
