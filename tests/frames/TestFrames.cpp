#include "TestFrames.h"

#include <cstring>

extern "C" {
#include <libavutil/channel_layout.h>
}

namespace TestFrames {

Veloran::AVFramePtr solidYuv420(int width, int height, uint8_t y, uint8_t u, uint8_t v)
{
    Veloran::AVFramePtr frame = Veloran::makeAVFramePtr(av_frame_alloc());
    frame->format = AV_PIX_FMT_YUV420P;
    frame->width = width;
    frame->height = height;
    if (av_frame_get_buffer(frame.data(), 0) < 0)
        return {};
    const uint8_t values[3] = {y, u, v};
    for (int plane = 0; plane < 3; ++plane) {
        const int rows = plane == 0 ? height : (height + 1) / 2;
        for (int row = 0; row < rows; ++row)
            std::memset(frame->data[plane] + row * frame->linesize[plane], values[plane], frame->linesize[plane]);
    }
    return frame;
}

Veloran::AVFramePtr silentAudio(AVSampleFormat format, const AVChannelLayout &layout, int sampleRate, int samples)
{
    Veloran::AVFramePtr frame = Veloran::makeAVFramePtr(av_frame_alloc());
    frame->format = format;
    frame->sample_rate = sampleRate;
    frame->nb_samples = samples;
    av_channel_layout_copy(&frame->ch_layout, &layout);
    if (av_frame_get_buffer(frame.data(), 0) < 0)
        return {};
    for (int i = 0; i < AV_NUM_DATA_POINTERS && frame->buf[i]; ++i)
        std::memset(frame->buf[i]->data, 0, frame->buf[i]->size);
    return frame;
}

AVChannelLayout layoutOf(uint64_t mask)
{
    AVChannelLayout layout {};
    av_channel_layout_from_mask(&layout, mask);
    return layout;
}

} // namespace TestFrames
