#include "FFmpegJoint.h"

#include "VeloranBaseEntry.h"

extern "C" {
#include <libavutil/error.h>
#include <libavutil/mem.h>
}

namespace Veloran {

namespace {

void freeIOContext(AVIOContext *io)
{
    if (!io)
        return;
    av_freep(&io->buffer);
    avio_context_free(&io);
}

} // namespace

AVFramePtr makeAVFramePtr(AVFrame *frame)
{
    if (!frame)
        return {};
    return AVFramePtr(frame, [](AVFrame *f) { av_frame_free(&f); });
}

AVPacketPtr makeAVPacketPtr(AVPacket *packet)
{
    if (!packet)
        return {};
    return AVPacketPtr(packet, [](AVPacket *p) { av_packet_free(&p); });
}

AVFormatContextPtr makeAVFormatContextPtr(AVFormatContext *context)
{
    if (!context)
        return {};
    return AVFormatContextPtr(context, [](AVFormatContext *c) {
        AVIOContext *customIO = (c->flags & AVFMT_FLAG_CUSTOM_IO) ? c->pb : nullptr;
        if (c->iformat)
            avformat_close_input(&c);
        else
            avformat_free_context(c);
        freeIOContext(customIO);
    });
}

AVCodecContextPtr makeAVCodecContextPtr(AVCodecContext *context)
{
    if (!context)
        return {};
    return AVCodecContextPtr(context, [](AVCodecContext *c) { avcodec_free_context(&c); });
}

AVCodecParametersPtr makeAVCodecParametersPtr(AVCodecParameters *parameters)
{
    if (!parameters)
        return {};
    return AVCodecParametersPtr(parameters, [](AVCodecParameters *p) { avcodec_parameters_free(&p); });
}

AVIOContextPtr makeAVIOContextPtr(AVIOContext *context)
{
    if (!context)
        return {};
    return AVIOContextPtr(context, freeIOContext);
}

SwsContextPtr makeSwsContextPtr(SwsContext *context)
{
    if (!context)
        return {};
    return SwsContextPtr(context, sws_freeContext);
}

SwrContextPtr makeSwrContextPtr(SwrContext *context)
{
    if (!context)
        return {};
    return SwrContextPtr(context, [](SwrContext *c) { swr_free(&c); });
}

AVFilterGraphPtr makeAVFilterGraphPtr(AVFilterGraph *graph)
{
    if (!graph)
        return {};
    return AVFilterGraphPtr(graph, [](AVFilterGraph *g) { avfilter_graph_free(&g); });
}

int openInputContext(AVFormatContextPtr &out, const char *url, AVIOContext *customIO, const AVIOInterruptCB *interrupt)
{
    out.reset();
    AVFormatContext *context = avformat_alloc_context();
    if (!context) {
        freeIOContext(customIO);
        return AVERROR(ENOMEM);
    }
    if (customIO) {
        context->pb = customIO;
        context->flags |= AVFMT_FLAG_CUSTOM_IO;
    }
    if (interrupt)
        context->interrupt_callback = *interrupt;
    const int result = avformat_open_input(&context, url, nullptr, nullptr);
    if (result != 0) {
        // avformat_open_input has freed `context` already; the I/O context is still ours.
        freeIOContext(customIO);
        return result;
    }
    out = makeAVFormatContextPtr(context);
    return result;
}

QString ffErrorText(int code)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {0};
    av_strerror(code, text, sizeof(text));
    return QString::fromUtf8(text);
}

void logIf_FF_Error(int code, const char *text)
{
    if (code >= 0)
        return;
    VR_LOG << (text ? text : "") << " " << code << ": " << ffErrorText(code);
}

} // namespace Veloran
