#include "ClipPlan.h"

#include <QFile>

namespace {

bool parseLine(const QString &line, int thumbs, ClipPlan &plan)
{
    const QStringList fields = line.split(QLatin1Char('\t'));
    if (fields.size() != 3)
        return false;
    bool ok = false;
    plan.file = fields[0];
    plan.hasVideo = fields[1].contains(QLatin1Char('v'));
    plan.hasAudio = fields[1].contains(QLatin1Char('a'));
    plan.durationMs = fields[2].toLongLong(&ok);
    if (!ok || plan.durationMs < 1 || (!plan.hasVideo && !plan.hasAudio))
        return false;
    if (plan.hasVideo) {
        for (int i = 0; i < thumbs; ++i)
            plan.thumbTimes.append(plan.durationMs * (2 * i + 1) / (2 * thumbs));
    }
    if (plan.hasAudio)
        plan.waveValues = int(plan.durationMs / 10);
    return true;
}

QString kindOf(const ClipPlan &plan)
{
    return QString(plan.hasAudio && plan.hasVideo ? "av" : plan.hasVideo ? "v" : "a");
}

} // namespace

QVector<ClipPlan> readClipPlans(const QString &listFile, int thumbs, QString &error)
{
    QFile file(listFile);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        error = QStringLiteral("cannot read %1").arg(listFile);
        return {};
    }
    QVector<ClipPlan> plans;
    int lineNumber = 0;
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        ++lineNumber;
        if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
            continue;
        ClipPlan plan;
        if (!parseLine(line, thumbs, plan)) {
            error = QStringLiteral("%1:%2: expected FILE<TAB>av|v|a<TAB>DURATION_MS").arg(listFile).arg(lineNumber);
            return {};
        }
        plans.append(plan);
    }
    if (plans.isEmpty())
        error = QStringLiteral("%1: no clips").arg(listFile);
    return plans;
}

void printClipPlans(const QVector<ClipPlan> &plans, QTextStream &out)
{
    for (const ClipPlan &plan : plans) {
        QStringList times;
        for (qint64 t : plan.thumbTimes)
            times << QString::number(t);
        out << plan.file << '\t' << kindOf(plan) << '\t' << (times.isEmpty() ? "-" : times.join(',')) << '\t'
            << plan.waveValues << '\n';
    }
    out.flush();
}
