#include "JSAudioClip.h"

namespace Veloran {

JSAudioClip::JSAudioClip(NLMapNodePtr node)
    : JSBasicClip(std::move(node))
{
}

QList<QVariantMap> JSAudioClip::filters() const { return childListMaps(QStringLiteral("audio_filters")); }
int JSAudioClip::fileAudioStreamIndex() const { return intValue(QStringLiteral("file_audio_stream_index")); }

} // namespace Veloran
