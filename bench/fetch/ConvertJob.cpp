#include "ConvertJob.h"

#include "FFmpegJoint.h"

#include "VeloranDec/Adapter/FFVideoAdapter.h"
#include "VeloranDec/FFVideoStreamReader.h"

#include <QElapsedTimer>
#include <QVector>

#include <algorithm>
#include <functional>

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace {

// Median time of one call of `convert` per frame, in milliseconds.
double medianMs(const QVector<Veloran::AVFramePtr> &frames, int rounds,
                const std::function<void(const Veloran::AVFramePtr &)> &convert)
{
    QVector<double> times;
    for (int round = 0; round < rounds; ++round) {
        for (const Veloran::AVFramePtr &frame : frames) {
            QElapsedTimer clock;
            clock.start();
            convert(frame);
            times.append(clock.nsecsElapsed() / 1e6);
        }
    }
    std::sort(times.begin(), times.end());
    return times.isEmpty() ? 0.0 : times[times.size() / 2];
}

} // namespace

bool runConvertJob(const ConvertJobOptions &options, QTextStream &out)
{
    Veloran::FFVideoStreamReader reader;
    if (!reader.openStream(options.file, AVMEDIA_TYPE_VIDEO, -1))
        return false;
    QVector<Veloran::AVFramePtr> frames;
    while (frames.size() < options.frames) {
        const Veloran::AVFramePtr frame = reader.readNextFrame();
        if (!frame)
            break;
        frames.append(frame);
    }
    if (frames.isEmpty())
        return false;
    const AVFrame &first = *frames.first();
    const auto format = AVPixelFormat(first.format);
    const int height = int(double(first.height) / first.width * options.width);

    Veloran::SwsContextPtr plain = Veloran::makeSwsContextPtr(sws_getContext(
        first.width, first.height, format, options.width, height, AV_PIX_FMT_RGB24, SWS_BILINEAR, nullptr, nullptr, nullptr));
    const double plainMs = medianMs(frames, options.rounds, [&](const Veloran::AVFramePtr &frame) {
        Veloran::AVFramePtr rgb = Veloran::makeAVFramePtr(av_frame_alloc());
        rgb->format = AV_PIX_FMT_RGB24;
        rgb->width = options.width;
        rgb->height = height;
        av_frame_get_buffer(rgb.data(), 16);
        sws_scale(plain.data(), frame->data, frame->linesize, 0, frame->height, rgb->data, rgb->linesize);
    });

    Veloran::FFVideoAdapter adapter;
    adapter.setupContext(first.width, first.height, format, options.width, height, AV_PIX_FMT_RGB24);
    const double adapterMs = medianMs(frames, options.rounds, [&](const Veloran::AVFramePtr &frame) { adapter.adapt(frame); });

    out << "frames=" << frames.size() << " size=" << first.width << "x" << first.height
        << " format=" << av_get_pix_fmt_name(format) << " transfer=" << av_color_transfer_name(first.color_trc)
        << " plain_ms=" << plainMs << " adapter_ms=" << adapterMs << Qt::endl;
    return true;
}
