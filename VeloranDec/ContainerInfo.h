#pragma once

#include "VeloranDec/CAudioStreamInfo.h"
#include "VeloranDec/CStreamInfo.h"
#include "VeloranDec/CSubtitleStreamInfo.h"
#include "VeloranDec/CVideoStreamInfo.h"
#include "vrfetcher_export.h"

#include <QSharedPointer>
#include <QString>
#include <QVector>

namespace Veloran {

// An open file described once: container figures and one record per stream.
struct VRFETCHER_EXPORT ContainerInfo
{
    qint64 durationMs = 0;
    qint64 startTime = 0; // whole seconds
    qint64 bitRate = 0;
    QString formatName;
    QVector<QSharedPointer<CVideoStreamInfo>> videoStreams;
    QVector<QSharedPointer<CAudioStreamInfo>> audioStreams;
    QVector<QSharedPointer<CSubtitleStreamInfo>> subtitleStreams;
    QVector<QSharedPointer<CStreamInfo>> streams; // every stream, any type

    // Time base of stream `index`; microseconds when the file has no such stream.
    AVRational getStreamTimeBase(int index) const;
};

} // namespace Veloran
