#pragma once

#include "vrfetcher_export.h"

#include <QString>
#include <QtGlobal>

namespace Veloran {

/// One edit of the timeline document, sent to the root node with INode::processCommand().
/// A plain value; a target id that matches no node makes the command do nothing.
struct VRFETCHER_EXPORT EditCommand
{
    /// What the command does to its target.
    enum Kind : qint32 {
        ResetList = 0,  ///< list target: rebuild its elements from the JSON array `content`
        AppendNode = 1, ///< list target: append a node built from the JSON object `content`
        RemoveNode = 2, ///< list target: remove the first element with the "id" of `content`
        ResetNode = 3,  ///< map target: rebuild it from the JSON object `content`
        ModifyNode = 4, ///< map target: merge the keys of `content` into it
    };

    qint32 kind = ResetList; ///< one of Kind
    QString targetID; ///< a map node's "id", or a list's "<parent id>#<key>"
    QString content;  ///< JSON text: an array for ResetList, an object otherwise
};

} // namespace Veloran
