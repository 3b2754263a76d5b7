#pragma once

#include "vrfetcher_export.h"

#include <QString>

namespace Veloran {

struct EditCommand;

/// A node of the timeline document tree: either a map node (a JSON object) or a list
/// node (a JSON array of objects). Nodes are addressed by their string id.
///
/// A tree has no locks: it is used by one thread at a time. Nodes are shared between
/// trees and holders (copies of a tree, clip views, frames), and an edit changes no
/// node it does not own: the node it goes through changes in place, every node on the
/// way down to the target is replaced by an edited copy, so a node held elsewhere
/// never changes and may be read on another thread meanwhile. Failures are silent (a
/// missing target or bad JSON changes nothing or gives empty values).
class VRFETCHER_EXPORT INode
{
public:
    virtual ~INode();
    INode(const INode &) = delete;
    INode &operator=(const INode &) = delete;

    /// The node's id: a map node's "id", a list node's "<parent id>#<key>".
    virtual QString tagID() const = 0;

    /// Depth-first, pre-order search by id; on a hit `*parent` names the node that
    /// directly contains the found node (null when the hit is this node itself).
    /// Null when no node has that id; `parent` may be null.
    virtual INode *findNode(const QString &id, INode **parent) = 0;

    /// Applies `cmd` to its target below (or at) this node: this node changes in place,
    /// the nodes below it on the way to the target are replaced by edited copies, so
    /// other holders of them keep seeing the old document. A command that changes
    /// nothing copies nothing. The caller passes the root; `parent` is not used.
    virtual void processCommand(const EditCommand &cmd, INode *parent) = 0;

    /// Makes this node's storage private and replaces every direct child by a deep clone.
    virtual void copyOnWrite() = 0;

protected:
    INode() = default;

    // What a command did within a subtree: it reached no node there, reached a node
    // and left it as it was, or changed something.
    enum class Edit { Missed, Unchanged, Changed };

    // findNode() of a node whose direct children are `children`, each of which
    // `nodeOf` turns into the INode to search.
    template <typename Children, typename NodeOf>
    INode *findAmong(const QString &id, INode **parent, const Children &children, NodeOf nodeOf);

    // Node::apply() of `cmd` below `node` with a copy of `node` as the node to write
    // to: the copy is made, into `copy`, only when the command changes something.
    template <typename Node, typename NodePtr>
    static Edit editedCopy(const Node &node, const EditCommand &cmd, NodePtr *copy)
    {
        return node.apply(cmd, [&node, copy] {
            *copy = node.shallowCopy();
            return copy->data();
        });
    }
};

template <typename Children, typename NodeOf>
INode *INode::findAmong(const QString &id, INode **parent, const Children &children, NodeOf nodeOf)
{
    INode *ignored = nullptr;
    if (!parent)
        parent = &ignored;
    *parent = nullptr;
    if (id == tagID())
        return this;
    for (const auto &child : children) {
        if (INode *hit = nodeOf(child)->findNode(id, parent)) {
            if (!*parent)
                *parent = this;
            return hit;
        }
    }
    return nullptr;
}

} // namespace Veloran
