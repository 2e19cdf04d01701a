#include "Network.h"

#include "NetworkBuilder.h"
#include "ReachableLists.h"

namespace Perenna::Pattern {

Network::Network(const Tree& tree)
    : m_start(NetworkBuilder(tree, m_nodes).Build()), m_complete(ReachableLists(m_nodes).Make(m_listed, m_reserved)) {}

} // namespace Perenna::Pattern
