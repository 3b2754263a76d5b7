#include "PhaseProbe.h"

#include "FFmpegJoint.h"
#include "Percentiles.h"
#include "PhaseClock.h"

#include "VeloranDec/Adapter/FFVideoAdapter.h"
#include "VeloranDec/AudioSource.h"
#include "VeloranDec/FFAudioStreamReader.h"
#include "VeloranDec/FFVideoStreamReader.h"

#include <QImage>

extern "C" {
#include <libavformat/avformat.h>
}

using Veloran::AVFormatContextPtr;
using Veloran::AVFramePtr;

namespace {

enum Phase { OpenInput, Probe, ReaderOpen, SecondOpen, SeekDecode, ConvertScale, Image, AudioOpen, AudioDecode };

// Opening and probing as FFDemuxer::open does, timed apart; notes how much of the
// file they read.
bool openAndProbe(const QString &file, PhaseClock &clock, QVector<double> &readShares)
{
    AVFormatContextPtr ctx;
    if (clock.measure(OpenInput, [&] { return Veloran::openInputContext(ctx, file.toUtf8().constData(), nullptr); }) != 0)
        return false;
    if (clock.measure(Probe, [&] { return avformat_find_stream_info(ctx.data(), nullptr); }) < 0)
        return false;
    const qint64 size = ctx->pb ? avio_size(ctx->pb) : 0;
    if (size > 0)
        readShares << 100.0 * ctx->pb->bytes_read / size;
    return true;
}

bool probeVideo(const ClipPlan &plan, int width, PhaseClock &clock, QVector<double> &readShares)
{
    if (!openAndProbe(plan.file, clock, readShares))
        return false;
    Veloran::FFVideoStreamReader reader;
    if (!clock.measure(ReaderOpen, [&] { return reader.openStream(plan.file, AVMEDIA_TYPE_VIDEO, -1); }))
        return false;
    if (plan.hasAudio) {
        // What the video reader's open did before it shared its demuxer: a reader of
        // its own on the audio, to learn where the audio starts.
        clock.measure(SecondOpen, [&] {
            Veloran::FFAudioStreamReader audio;
            audio.openStream(plan.file, AVMEDIA_TYPE_AUDIO, -1);
        });
    }
    Veloran::FFVideoAdapter adapter;
    bool adapterReady = false;
    for (qint64 time : plan.thumbTimes) {
        const AVFramePtr frame = clock.measure(SeekDecode, [&] { return reader.seekAndReadNextFrame(time, true); });
        if (!frame)
            return false;
        const AVFramePtr rgb = clock.measure(ConvertScale, [&] {
            // As the video source sets its converter up: RGB, the width asked for.
            if (!adapterReady) {
                adapter.setOutFormat(AV_PIX_FMT_RGB24);
                adapterReady = adapter.setupContext(frame->width, frame->height, AVPixelFormat(frame->format), width,
                                                    int(double(frame->height) / frame->width * width),
                                                    AV_PIX_FMT_RGB24);
            }
            return adapter.adapt(frame);
        });
        if (!rgb)
            return false;
        const QImage image = clock.measure(Image, [&] {
            return QImage(rgb->data[0], rgb->width, rgb->height, rgb->linesize[0], QImage::Format_RGB888).copy();
        });
        if (image.isNull())
            return false;
    }
    return true;
}

bool probeAudio(const ClipPlan &plan, PhaseClock &clock)
{
    // As the audio picker reads: 8-bit mono at 48 kHz.
    Veloran::AudioSource source;
    if (!clock.measure(AudioOpen, [&] { return source.open(plan.file, AV_SAMPLE_FMT_U8, 1, -1, 48000); }))
        return false;
    return clock.measure(AudioDecode, [&] {
        int frames = 0;
        while (source.readNextAdaptFrame())
            ++frames;
        return frames > 0;
    });
}

} // namespace

bool probePhases(const QVector<ClipPlan> &plans, int width, QTextStream &out)
{
    PhaseClock clock({"open_input", "probe", "reader_open",
                      "(second_open_before)", "seek_decode", "convert_scale", "image", "audio_open",
                      "audio_decode_resample"});
    QVector<double> readShares;
    int failed = 0;
    for (const ClipPlan &plan : plans) {
        const bool ok = (!plan.hasVideo || probeVideo(plan, width, clock, readShares))
                        && (!plan.hasAudio || probeAudio(plan, clock));
        if (!ok) {
            out << "failed: " << plan.file << '\n';
            ++failed;
        }
    }
    clock.print(out);
    out << "opened_and_probed_file_percent " << Percentiles(readShares).summary() << Qt::endl;
    return failed == 0;
}
