#pragma once

#include <QString>

// The media the demo reads: its default sample, and how long a file plays.
namespace DemoMedia {

// A 12 s test picture with a swelling tone, made with the ffmpeg tool next to the
// demo program when it is not there yet. Empty when it cannot be made.
QString defaultSample();

// Duration in milliseconds from the library's video source (or audio source for a
// file without pictures); 0 when the file cannot be read.
qint64 durationMs(const QString &file);

} // namespace DemoMedia
