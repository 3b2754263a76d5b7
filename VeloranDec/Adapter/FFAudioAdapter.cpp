#include "FFAudioAdapter.h"

#include "FFmpegJoint.h"
#include "VeloranBaseEntry.h"

#include <QString>

namespace Veloran {

namespace {

// The set of speakers in a layout, whatever its channel order (0 when unspecified).
uint64_t speakerMask(const AVChannelLayout &layout)
{
    return av_channel_layout_subset(&layout, ~uint64_t(0));
}

// The frame's sample planes; hand-made frames may only fill `data`.
uint8_t *planeOf(const AVFrame *frame, int index)
{
    if (frame->extended_data)
        return frame->extended_data[index];
    return index < AV_NUM_DATA_POINTERS ? frame->data[index] : nullptr;
}

} // namespace

FFAudioAdapter::FFAudioAdapter(QObject *parent)
    : BasicObject(parent)
{
}

FFAudioAdapter::~FFAudioAdapter() = default;

bool FFAudioAdapter::setupContext(int inSampleRate, int inChannels, AVSampleFormat inFormat,
                                  AVChannelLayout &inLayout, int outSampleRate, int outChannels,
                                  AVSampleFormat outFormat)
{
    assertOwnThread();
    ChannelLayout outLayout = ChannelLayout::defaultFor(outChannels);

    SwrContext *raw = nullptr;
    const auto usable = [](int rate) { return rate >= 1 && rate <= kMostSampleRate; };
    int result = AVERROR(EINVAL);
    if (usable(inSampleRate) && usable(outSampleRate))
        result = swr_alloc_set_opts2(&raw, &outLayout.get(), outFormat, outSampleRate, &inLayout, inFormat, inSampleRate, 0,
                                     nullptr);
    SwrContextPtr context = makeSwrContextPtr(raw);
    if (result >= 0 && context)
        result = swr_init(context.data());

    if (result < 0 || !context) {
        VR_LOG << QString::asprintf("Cannot create sample rate conv of %d Hz %s %d channels to %d Hz %s %d channels!",
                                    inSampleRate, av_get_sample_fmt_name(inFormat), inLayout.nb_channels,
                                    outSampleRate, av_get_sample_fmt_name(outFormat), outLayout.get().nb_channels);
        logIf_FF_Error(result, "audio swr");
        // The earlier resampler and the parameters it was made for stay: a frame
        // that keeps failing is then retried, never fed to a resampler made for
        // other input.
        return false;
    }

    mInLayout = ChannelLayout(inLayout);
    mInSampleRate = inSampleRate;
    mInChannels = inChannels;
    mInFormat = inFormat;
    mOutSampleRate = outSampleRate;
    mOutChannels = outChannels;
    mOutFormat = outFormat;
    mSwrContext = context;
    return true;
}

AVFramePtr FFAudioAdapter::adapt(AVFramePtr frame)
{
    assertOwnThread();
    if (!frame)
        return frame;

    if (!mSwrContext) {
        VR_LOG << "no SwrContext...";
        return {};
    }

    const uint64_t frameMask = speakerMask(frame->ch_layout);
    const uint64_t inMask = speakerMask(mInLayout.get());
    if (frame->format == mOutFormat && frame->ch_layout.nb_channels == mOutChannels && frameMask == inMask
        && frame->sample_rate == mOutSampleRate) {
        return frame;
    }

    if (frame->ch_layout.nb_channels != mInChannels || frame->format != mInFormat
        || frame->sample_rate != mInSampleRate || frameMask != inMask) {
        VR_LOG << "---player--- demux and frame param isn't match: "
               << "mInFormat = " << int(mInFormat) << ",frame->format = " << frame->format
               << ",mInChannels = " << mInChannels << ",frame->channels = " << frame->ch_layout.nb_channels
               << ",mInSampleRate = " << mInSampleRate << ",frame->sample_rate = " << frame->sample_rate;
        if (!setupContext(frame->sample_rate, frame->ch_layout.nb_channels, AVSampleFormat(frame->format),
                          frame->ch_layout, mOutSampleRate, mOutChannels, mOutFormat)) {
            VR_LOG << "---player--- no SwrContext...";
            return {};
        }
    }

    // Every plane the resampler will read must be there; packed audio has one. The
    // resampler reads as many planes as its layout has channels.
    const int planes = av_sample_fmt_is_planar(mInFormat) ? qMax(mInChannels, mInLayout.get().nb_channels) : 1;
    for (int i = 0; i < planes; ++i) {
        if (!planeOf(frame.data(), i)) {
            VR_LOG << "---player--- channels ,format and data isn't match: "
                   << "mInChannels = " << mInChannels << ",mInFormat(planar) = " << int(mInFormat)
                   << ",frame->data[" << i << "] is null";
            return {};
        }
    }

    AVFramePtr out = makeAVFramePtr(av_frame_alloc());
    if (!out)
        return {};
    out->nb_samples = swr_get_out_samples(mSwrContext.data(), frame->nb_samples);
    if (out->nb_samples < 0 || out->nb_samples > kMostOutSamples) {
        logIf_FF_Error(AVERROR(ERANGE), "create buffer");
        return {};
    }
    out->sample_rate = mOutSampleRate;
    out->format = mOutFormat;
    av_channel_layout_default(&out->ch_layout, mOutChannels);
    const int bufferResult = av_frame_get_buffer(out.data(), 0);
    if (bufferResult < 0) {
        logIf_FF_Error(bufferResult, "create buffer");
        return {};
    }

    const uint8_t **input = const_cast<const uint8_t **>(frame->extended_data ? frame->extended_data : frame->data);
    const int converted = swr_convert(mSwrContext.data(), out->extended_data, out->nb_samples, input,
                                      frame->nb_samples);
    if (converted < 1) {
        logIf_FF_Error(converted, "---player--- swr_convert:");
        return {};
    }
    out->nb_samples = converted;
    out->pts = frame->pts;
    out->pkt_dts = frame->pkt_dts;
    out->best_effort_timestamp = frame->pts;
    return out;
}

void FFAudioAdapter::dropDelayedSamples()
{
    // Initialising an initialised resampler again empties its buffers and keeps its options.
    if (mSwrContext)
        logIf_FF_Error(swr_init(mSwrContext.data()), "audio swr");
}

} // namespace Veloran
