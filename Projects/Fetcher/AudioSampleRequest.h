#pragma once

#include <QMetaType>
#include <QString>
#include <QtGlobal>

namespace Veloran {

/// Peak values wanted over a time range of an audio file: `sampleCount` values in
/// total, delivered in `count` pieces. A plain value, copied through the queues and
/// queued signals, so it may cross threads freely.
struct AudioSampleRequest
{
    qint64 id = 0;       ///< request id from the fetch call
    QString sourcePath;  ///< the file actually opened; the picker-cache key
    QString filePath;    ///< the path as the caller gave it (a material folder stays a folder)
    QString tag;         ///< free text carried along for the caller; empty from fetchAudio
    qint64 begin = 0;    ///< start of the range, ms
    qint64 length = 0;   ///< length of the range, ms
    int sampleCount = 0; ///< peak values wanted over the whole range
    int count = 0;       ///< pieces the values are delivered in
};

} // namespace Veloran

Q_DECLARE_METATYPE(Veloran::AudioSampleRequest)
