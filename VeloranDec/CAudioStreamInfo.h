#pragma once

#include "VeloranDec/CStreamInfo.h"

#include <QtGlobal>

namespace Veloran {

/// An audio stream's sample layout, straight from its codec parameters.
/// Plain data, never changed after it is made.
struct CAudioStreamInfo : public CStreamInfo
{
    int sampleFmt = -1;        ///< AVSampleFormat
    int channels = 0;          ///< channel count
    int sampleRate = 0;        ///< samples per second
    long long durationMs = 0;  ///< stream duration; 0 when unknown
    long long bitRate = 0;     ///< bits per second; 0 when unknown
    quint64 channelLayout = 0; ///< legacy channel mask
    quint32 codecTag = 0;      ///< the codec tag (FourCC)
};

} // namespace Veloran
