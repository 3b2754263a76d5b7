#pragma once

#include "Model/JSBasicClip.h"
#include "vrfetcher_export.h"

#include <QList>
#include <QVariantMap>

namespace Veloran {

/// An audio clip: its filters and the audio stream it plays.
class VRFETCHER_EXPORT JSAudioClip : public JSBasicClip
{
public:
    /// A view over `node`; a null node reads every value as absent.
    explicit JSAudioClip(NLMapNodePtr node = NLMapNodePtr());

    /// The element maps of the "audio_filters" list; empty without it.
    QList<QVariantMap> filters() const;
    /// "file_audio_stream_index", 0 when absent.
    int fileAudioStreamIndex() const;
};

} // namespace Veloran
