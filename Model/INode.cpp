#include "INode.h"

namespace Veloran {

INode::~INode() = default;

} // namespace Veloran
