#pragma once

#include "Model/JSBasicClip.h"
#include "vrfetcher_export.h"

#include <QList>
#include <QVariantMap>

namespace Veloran {

// An audio clip: its filters and the audio stream it plays.
class VRFETCHER_EXPORT JSAudioClip : public JSBasicClip
{
public:
    explicit JSAudioClip(NLMapNodePtr node = NLMapNodePtr());

    QList<QVariantMap> filters() const;
    int fileAudioStreamIndex() const;
};

} // namespace Veloran
