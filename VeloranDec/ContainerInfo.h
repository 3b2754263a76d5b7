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

/// An open file described once: container figures and one record per stream.
/// Made by makeContainerInfo() and not changed afterwards; the stream lists are in
/// stream index order.
struct VRFETCHER_EXPORT ContainerInfo
{
    long long durationMs = 0;                                     ///< container duration in ms (5 ms added before truncating)
    long long startTime = 0;                                      ///< whole seconds
    long long bitRate = 0;                                        ///< container bit rate; 0 when unknown
    QString formatName;                                           ///< the format's long name; empty when it has none
    QVector<QSharedPointer<CVideoStreamInfo>> videoStreams;       ///< video streams
    QVector<QSharedPointer<CAudioStreamInfo>> audioStreams;       ///< audio streams
    QVector<QSharedPointer<CSubtitleStreamInfo>> subtitleStreams; ///< subtitle streams
    QVector<QSharedPointer<CStreamInfo>> streams;                 ///< every stream, any type

    /// Time base of stream `index`; microseconds when the file has no such stream.
    AVRational getStreamTimeBase(int index) const;
};

} // namespace Veloran
