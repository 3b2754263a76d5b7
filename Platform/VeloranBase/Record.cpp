#include "Record.h"

#include <QStringList>

namespace Veloran {

Record::Record(const char *function, const char *sourceFile, int line)
    : mFunction(QString::fromUtf8(function ? function : ""))
    , mSourcePath(projectRelativePath(sourceFile))
    , mLine(line)
{
}

QString Record::projectRelativePath(const char *sourceFile)
{
    QString path = QString::fromUtf8(sourceFile ? sourceFile : "");
    path.replace(QLatin1Char('\\'), QLatin1Char('/'));
    // Builds map __FILE__ to the source root already; this covers builds that do not.
    static const QStringList kRoots = {QStringLiteral("Projects/"), QStringLiteral("VeloranDec/"),
                                      QStringLiteral("Model/"), QStringLiteral("Common/"),
                                      QStringLiteral("Platform/"), QStringLiteral("tests/"),
                                      QStringLiteral("examples/"), QStringLiteral("bench/")};
    if (path.startsWith(QLatin1Char('/'))) {
        // The innermost project folder wins: a checkout may itself sit below a folder
        // that happens to be called like one (/home/me/Projects/repo/Common/...).
        int cut = -1;
        for (const QString &root : kRoots)
            cut = qMax(cut, path.lastIndexOf(QLatin1Char('/') + root));
        if (cut >= 0)
            path = path.mid(cut + 1);
    }
    if (path.startsWith(QLatin1String("./")))
        path = path.mid(2);
    const int dot = path.lastIndexOf(QLatin1Char('.'));
    if (dot > path.lastIndexOf(QLatin1Char('/')))
        path.truncate(dot);
    return path;
}

} // namespace Veloran
