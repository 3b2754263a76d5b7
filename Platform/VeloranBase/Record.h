#pragma once

#include "vrbase_export.h"

#include <QDebug>
#include <QString>

namespace Veloran {

/// One tagged log line: the function that wrote it (as the compiler spells its
/// signature), the project-relative source path without extension, the line, and
/// the text streamed in with <<. Values are appended without separators or quotes,
/// so `Record(...) << "count: " << 3` reads "count: 3". A record is built and used
/// by one thread; usually through VR_LOG.
class VRBASE_EXPORT Record
{
public:
    /// `function` as Q_FUNC_INFO gives it; `sourceFile` as __FILE__ gives it.
    Record(const char *function, const char *sourceFile, int line);

    /// Appends `value` as QDebug writes it, without quotes or separators.
    template <typename T>
    Record &operator<<(const T &value)
    {
        QDebug(&mText).noquote().nospace() << value;
        return *this;
    }

    QString function() const { return mFunction; }     ///< the writing function's signature
    QString sourcePath() const { return mSourcePath; } ///< project-relative, without extension
    int line() const { return mLine; }                 ///< the source line
    QString text() const { return mText; }             ///< the text streamed in

    /// "VeloranDec/FFDemuxer.cpp" -> "VeloranDec/FFDemuxer"; leading "./" and
    /// absolute prefixes up to a known project folder are cut as well.
    static QString projectRelativePath(const char *sourceFile);

private:
    QString mFunction;
    QString mSourcePath;
    int mLine = 0;
    QString mText;
};

} // namespace Veloran
