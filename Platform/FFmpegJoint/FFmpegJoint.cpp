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

void closeFormatContext(AVFormatContext *context)
{
    AVIOContext *customIO = (context->flags & AVFMT_FLAG_CUSTOM_IO) ? context->pb : nullptr;
    if (context->iformat)
        avformat_close_input(&context);
    else
        avformat_free_context(context);
    freeIOContext(customIO);
}

// Most FFmpeg free calls take the address of the pointer, to null it.
template <typename T, void (*Free)(T **)>
void freeByAddress(T *object)
{
    Free(&object);
}

// `object` owned by a shared pointer that frees it with `free`; null stays null.
template <typename T, typename Free>
QSharedPointer<T> owned(T *object, Free free)
{
    if (!object)
        return {};
    return QSharedPointer<T>(object, free);
}

} // namespace

// One line per type: the FFmpeg call that frees it.
AVFramePtr makeAVFramePtr(AVFrame *frame) { return owned(frame, freeByAddress<AVFrame, av_frame_free>); }
AVPacketPtr makeAVPacketPtr(AVPacket *packet) { return owned(packet, freeByAddress<AVPacket, av_packet_free>); }
AVFormatContextPtr makeAVFormatContextPtr(AVFormatContext *context) { return owned(context, closeFormatContext); }
AVCodecContextPtr makeAVCodecContextPtr(AVCodecContext *context)
{
    return owned(context, freeByAddress<AVCodecContext, avcodec_free_context>);
}
AVCodecParametersPtr makeAVCodecParametersPtr(AVCodecParameters *parameters)
{
    return owned(parameters, freeByAddress<AVCodecParameters, avcodec_parameters_free>);
}
AVIOContextPtr makeAVIOContextPtr(AVIOContext *context) { return owned(context, freeIOContext); }
SwsContextPtr makeSwsContextPtr(SwsContext *context) { return owned(context, sws_freeContext); }
SwrContextPtr makeSwrContextPtr(SwrContext *context) { return owned(context, freeByAddress<SwrContext, swr_free>); }
AVFilterGraphPtr makeAVFilterGraphPtr(AVFilterGraph *graph)
{
    return owned(graph, freeByAddress<AVFilterGraph, avfilter_graph_free>);
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
