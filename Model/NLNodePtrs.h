#pragma once

#include <QSharedPointer>

namespace Veloran {

class NLMapNode;
class NLListNode;
/// Shared ownership of the nodes of a timeline tree: child nodes are held by their
/// parents through these, inside QVariants (meta types "Veloran::NLMapNodePtr" and
/// "Veloran::NLListNodePtr").
using NLMapNodePtr = QSharedPointer<NLMapNode>;
using NLListNodePtr = QSharedPointer<NLListNode>;

} // namespace Veloran
