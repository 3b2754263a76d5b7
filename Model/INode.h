#pragma once

#include "vrfetcher_export.h"

#include <QString>

namespace Veloran {

struct EditCommand;

/// A node of the timeline document tree: either a map node (a JSON object) or a list
/// node (a JSON array of objects). Nodes are addressed by their string id.
///
/// A tree has no locks: it is used by one thread at a time, and copies shared with
/// other holders are separated by copy-on-write. Failures are silent (a missing target
/// or bad JSON changes nothing or gives empty values).
class VRFETCHER_EXPORT INode
{
public:
    virtual ~INode();

    /// The node's id: a map node's "id", a list node's "<parent id>#<key>".
    virtual QString tagID() const = 0;

    /// Depth-first, pre-order search by id; on a hit `*parent` names the node that
    /// directly contains the found node (null when the hit is this node itself).
    /// Null when no node has that id; `parent` may be null.
    virtual INode *findNode(const QString &id, INode **parent) = 0;

    /// Applies `cmd` to its target below (or at) this node, copying the nodes on the
    /// way so other holders of the same tree keep seeing the old document. The caller
    /// passes the root and a null `parent`.
    virtual void processCommand(const EditCommand &cmd, INode *parent) = 0;

    /// Makes this node's storage private and replaces every direct child by a deep clone.
    virtual void copyOnWrite() = 0;
};

} // namespace Veloran
