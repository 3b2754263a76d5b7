#pragma once

#include "VeloranDec/CStreamInfo.h"

#include <QtGlobal>

namespace Veloran {

// An audio stream's sample layout, straight from its codec parameters.
struct CAudioStreamInfo : public CStreamInfo
{
    int sampleFmt = -1; // AVSampleFormat
    int channels = 0;
    int sampleRate = 0;
    qint64 durationMs = 0;
    qint64 bitRate = 0;
    quint64 channelLayout = 0; // legacy channel mask
    quint32 codecTag = 0;
};

} // namespace Veloran
