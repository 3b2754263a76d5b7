#pragma once

#include "vrbase_export.h"

#include <QDebug>
#include <QString>

namespace Veloran {

// One tagged log line: the function that wrote it (as the compiler spells its
// signature), the project-relative source path without extension, the line, and
// the text streamed in with <<. Values are appended without separators or quotes,
// so `Record(...) << "count: " << 3` reads "count: 3".
class VRBASE_EXPORT Record
{
public:
    Record(const char *function, const char *sourceFile, int line);

    template <typename T>
    Record &operator<<(const T &value)
    {
        QDebug(&mText).noquote().nospace() << value;
        return *this;
    }

    QString function() const { return mFunction; }
    QString sourcePath() const { return mSourcePath; }
    int line() const { return mLine; }
    QString text() const { return mText; }

    // "VeloranDec/FFDemuxer.cpp" -> "VeloranDec/FFDemuxer"; leading "./" and
    // absolute prefixes up to a known project folder are cut as well.
    static QString projectRelativePath(const char *sourceFile);

private:
    QString mFunction;
    QString mSourcePath;
    int mLine = 0;
    QString mText;
};

} // namespace Veloran
