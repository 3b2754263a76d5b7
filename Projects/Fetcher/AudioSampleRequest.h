#pragma once

#include <QMetaType>
#include <QString>
#include <QtGlobal>

namespace Veloran {

// Peak values wanted over a time range of an audio file: `sampleCount` values in
// total, delivered in `count` pieces.
struct AudioSampleRequest
{
    qint64 id = 0;
    QString sourcePath; // the file actually opened; the picker-cache key
    QString filePath;   // the path as the caller gave it (a material folder stays a folder)
    QString tag;        // free text carried along for the caller; empty from fetchAudio
    qint64 begin = 0;   // ms
    qint64 length = 0;  // ms
    int sampleCount = 0;
    int count = 0;
};

} // namespace Veloran

Q_DECLARE_METATYPE(Veloran::AudioSampleRequest)
