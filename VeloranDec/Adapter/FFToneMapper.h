#pragma once

#include "FFmpegJoint.h"

namespace Veloran {

/// Turns HDR pictures (PQ or HLG transfer, BT.2020 primaries) into SDR BT.709 RGB with
/// FFmpeg's filters: to linear light, to BT.709 primaries, the Möbius tone curve (which
/// leaves the SDR part of the signal as it is and rolls off the highlights; its peak
/// comes from the frame's content light or mastering display metadata when present),
/// and the BT.709 transfer. It works at the size it is given, so pictures are best
/// scaled down before they come here.
///
/// Pictures come in inputFormat() and carry their colour tags (see
/// FFColourDescription::tag()). Not thread-safe; failures are logged.
class FFToneMapper
{
public:
    /// The format of the pictures map() takes: YUV 4:4:4 at 16 bits, which keeps
    /// the precision of 10- and 12-bit sources and of scaling.
    static AVPixelFormat inputFormat() { return AV_PIX_FMT_YUV444P16; }

    /// Builds the filters for width x height pictures and the output format; false,
    /// and no filters, when FFmpeg cannot build them.
    bool setup(int width, int height, AVPixelFormat outFormat);
    /// The tone-mapped picture; empty without set-up or when filtering fails.
    AVFramePtr map(const AVFramePtr &frame);
    /// Drops the filters.
    void reset();
    bool isSetUp() const { return !mGraph.isNull(); }

private:
    AVFilterGraphPtr mGraph;
    AVFilterContext *mSource = nullptr; // owned by mGraph
    AVFilterContext *mSink = nullptr;   // owned by mGraph
};

} // namespace Veloran
