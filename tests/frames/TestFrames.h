#pragma once

#include "FFmpegJoint.h"

// Decoded-looking frames built by hand, so tests know every sample they hold.
namespace TestFrames {

// A YUV 4:2:0 picture filled with one colour.
Veloran::AVFramePtr solidYuv420(int width, int height, uint8_t y, uint8_t u, uint8_t v);

// An audio frame of `samples` samples, every one of every channel zero (buffers
// allocated by FFmpeg, so planes and layout are as a decoder would leave them).
Veloran::AVFramePtr silentAudio(AVSampleFormat format, const AVChannelLayout &layout, int sampleRate, int samples);

// Interleaved signed 16-bit audio: channel c of sample i is value(i, c).
template <typename Fn>
Veloran::AVFramePtr s16Audio(const AVChannelLayout &layout, int sampleRate, int samples, Fn value)
{
    Veloran::AVFramePtr frame = silentAudio(AV_SAMPLE_FMT_S16, layout, sampleRate, samples);
    auto *out = reinterpret_cast<int16_t *>(frame->data[0]);
    const int channels = layout.nb_channels;
    for (int i = 0; i < samples; ++i)
        for (int c = 0; c < channels; ++c)
            out[i * channels + c] = value(i, c);
    return frame;
}

AVChannelLayout layoutOf(uint64_t mask);

} // namespace TestFrames
