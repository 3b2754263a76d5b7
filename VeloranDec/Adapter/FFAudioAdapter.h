#pragma once

#include "Common/BasicObject.h"
#include "VeloranDec/Adapter/ChannelLayout.h"
#include "FFmpegJointPtrs.h"
#include "vrfetcher_export.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/samplefmt.h>
}

namespace Veloran {

/// Converts decoded audio frames to one output sample rate, channel count and sample
/// format with swresample. Frames whose parameters differ from the ones set up
/// rebuild the resampler from the frame's own parameters.
///
/// Used from the thread it lives in (Debug builds abort otherwise; see BasicObject).
/// Failures are logged and give false or a null frame; nothing throws.
class VRFETCHER_EXPORT FFAudioAdapter : public BasicObject
{
    Q_OBJECT
public:
    /// The most samples one converted frame may hold: about 20 s at 48 kHz, where
    /// real frames hold a fraction of a second.
    static constexpr int kMostOutSamples = 1 << 20;

    /// An adapter without resampler; call setupContext() before adapt().
    explicit FFAudioAdapter(QObject *parent = nullptr);
    ~FFAudioAdapter() override;

    /// The highest sample rate converted from or to: real audio stays below.
    static constexpr int kMostSampleRate = 768000;

    /// Makes a resampler; on failure logs and keeps the earlier one. Rates outside
    /// 1 to kMostSampleRate fail (a resampler's filters grow with the ratio).
    bool setupContext(int inSampleRate, int inChannels, AVSampleFormat inFormat, AVChannelLayout &inLayout,
                      int outSampleRate, int outChannels, AVSampleFormat outFormat);

    /// The converted frame; the input itself when it is already in the output form;
    /// empty (with a log line) when it cannot be converted, no resampler was set up
    /// or it would come out longer than kMostOutSamples (a header claiming a rate of
    /// a few Hz). A null input comes back null.
    AVFramePtr adapt(AVFramePtr frame);

    /// Forgets the samples the resampler holds back between frames, so that audio read
    /// after a seek does not begin with the tail of what was read before it. Keeps the
    /// resampler's settings; does nothing without a resampler.
    void dropDelayedSamples();

private:
    int mInSampleRate = 0;
    int mInChannels = 0;
    ChannelLayout mInLayout;
    AVSampleFormat mInFormat = AV_SAMPLE_FMT_NONE;
    int mOutSampleRate = 0;
    int mOutChannels = 0;
    AVSampleFormat mOutFormat = AV_SAMPLE_FMT_NONE;
    SwrContextPtr mSwrContext;
};

} // namespace Veloran
