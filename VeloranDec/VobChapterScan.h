#pragma once

#include "VeloranDec/VobChapter.h"

#include <QString>
#include <QVector>

namespace Veloran {

/// Reads every packet of the file once, with a demuxer of its own, and splits it
/// into chapters where the audio or video timestamps restart or jump. Empty when
/// the file cannot be opened; one chapter for an ordinary file.
QVector<VobChapter> scanVobChapters(const QString &path);

} // namespace Veloran
