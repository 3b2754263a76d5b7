#include "FFToneMapper.h"

#include "VeloranBaseEntry.h"

extern "C" {
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/pixdesc.h>
}

#include <QString>

namespace Veloran {

namespace {

struct FilterStep
{
    const char *name;
    const char *arguments;
};

// Linear light with 100 nits as 1.0, BT.709 primaries in linear light, the tone curve,
// then the BT.709 transfer in planar RGB for the final packing.
constexpr FilterStep kSteps[] = {
    {"zscale", "transfer=linear:npl=100"},
    {"format", "pix_fmts=gbrpf32le"},
    {"zscale", "primaries=bt709"},
    {"tonemap", "tonemap=mobius:desat=0"},
    {"zscale", "transfer=bt709:primaries=bt709:matrix=bt709"},
    {"format", "pix_fmts=gbrp"},
};

} // namespace

bool FFToneMapper::setup(int width, int height, AVPixelFormat outFormat)
{
    reset();
    AVFilterGraphPtr graph = makeAVFilterGraphPtr(avfilter_graph_alloc());
    if (!graph)
        return false;
    // One thread: the pictures are thumbnail-sized, threads would cost more than they save.
    graph->nb_threads = 1;

    const QByteArray sourceArguments = QString::asprintf("video_size=%dx%d:pix_fmt=%d:time_base=1/1000:pixel_aspect=1/1",
                                                         width, height, int(inputFormat()))
                                           .toLatin1();
    const QByteArray sinkFormat = QByteArray("pix_fmts=") + av_get_pix_fmt_name(outFormat);

    AVFilterContext *source = nullptr;
    int result = avfilter_graph_create_filter(&source, avfilter_get_by_name("buffer"), "in",
                                              sourceArguments.constData(), nullptr, graph.data());
    AVFilterContext *last = source;
    for (const FilterStep &step : kSteps) {
        AVFilterContext *filter = nullptr;
        if (result >= 0)
            result = avfilter_graph_create_filter(&filter, avfilter_get_by_name(step.name), nullptr, step.arguments,
                                                  nullptr, graph.data());
        if (result >= 0)
            result = avfilter_link(last, 0, filter, 0);
        last = filter;
    }
    // The packing to the output format (swscale, inserted by the graph) ends the chain.
    AVFilterContext *packing = nullptr;
    AVFilterContext *sink = nullptr;
    if (result >= 0)
        result = avfilter_graph_create_filter(&packing, avfilter_get_by_name("format"), nullptr,
                                              sinkFormat.constData(), nullptr, graph.data());
    if (result >= 0)
        result = avfilter_link(last, 0, packing, 0);
    if (result >= 0)
        result = avfilter_graph_create_filter(&sink, avfilter_get_by_name("buffersink"), "out", nullptr, nullptr,
                                              graph.data());
    if (result >= 0)
        result = avfilter_link(packing, 0, sink, 0);
    if (result >= 0)
        result = avfilter_graph_config(graph.data(), nullptr);
    if (result < 0) {
        logIf_FF_Error(result, "---player--- tone mapping filters failed");
        return false;
    }
    mGraph = graph;
    mSource = source;
    mSink = sink;
    return true;
}

AVFramePtr FFToneMapper::map(const AVFramePtr &frame)
{
    if (!mGraph || !frame)
        return {};
    int result = av_buffersrc_add_frame_flags(mSource, frame.data(), AV_BUFFERSRC_FLAG_KEEP_REF);
    AVFramePtr out = makeAVFramePtr(av_frame_alloc());
    if (result >= 0 && out)
        result = av_buffersink_get_frame(mSink, out.data());
    if (result < 0 || !out) {
        logIf_FF_Error(result, "---player--- tone mapping failed");
        // A failed picture may stay queued in the filters; start clean next time.
        reset();
        return {};
    }
    return out;
}

void FFToneMapper::reset()
{
    mSource = nullptr;
    mSink = nullptr;
    mGraph.reset();
}

} // namespace Veloran
