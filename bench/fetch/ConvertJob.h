#pragma once

#include <QString>
#include <QTextStream>

struct ConvertJobOptions
{
    QString file;
    int width = 160;  // thumbnail width
    int frames = 20;  // decoded frames to convert
    int rounds = 10;  // conversions of each frame per method
};

// Cost of turning decoded frames into RGB thumbnails, decoding excluded: swscale as a
// plain scaler (BT.601, limited range, no tone mapping: the conversion without colour
// handling) against the library's FFVideoAdapter (the stream's own matrix and range,
// HDR tone-mapped). Writes "frames=N format=F plain_ms=... adapter_ms=..." with the
// median time per thumbnail; returns false when the file gives no frames.
bool runConvertJob(const ConvertJobOptions &options, QTextStream &out);
