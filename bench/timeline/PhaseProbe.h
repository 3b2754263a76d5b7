#pragma once

#include "ClipPlan.h"

#include <QTextStream>
#include <QVector>

// Where the time of opening a project goes: the work of the video and audio
// pickers redone step by step through the media layer on one thread, each step
// timed (wall and process CPU). Prints one line per phase; false when a clip
// failed to open or gave no frame.
bool probePhases(const QVector<ClipPlan> &plans, int width, QTextStream &out);
