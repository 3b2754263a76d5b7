#pragma once

#include <QString>
#include <QTextStream>
#include <QVector>

// One clip of the timeline and what an editor opening the project asks for it.
struct ClipPlan
{
    QString file;
    bool hasVideo = false;
    bool hasAudio = false;
    qint64 durationMs = 0;
    QVector<qint64> thumbTimes; // ascending; empty without video
    int waveValues = 0;         // one peak per 10 ms; 0 without audio
};

// The clip list file: one clip per line, "FILE<TAB>KIND<TAB>DURATION_MS" with KIND
// "av", "v" or "a"; empty lines and lines starting with '#' are skipped.
// `thumbs` thumbnails per video clip, spread evenly (at 10 %, 30 %, ... for 5).
// Empty with a message in `error` when the file cannot be read or a line is bad.
QVector<ClipPlan> readClipPlans(const QString &listFile, int thumbs, QString &error);

// Prints the plan, one clip per line: "FILE<TAB>KIND<TAB>T1,T2,...<TAB>WAVE_VALUES".
void printClipPlans(const QVector<ClipPlan> &plans, QTextStream &out);
