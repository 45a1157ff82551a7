#include "velmora/NodeGroups.h"

#include <algorithm>

namespace velmora {

std::vector<unsigned> groupsOfNode(const kxDisassemblyHierarchy& hierarchy, unsigned node)
{
    const kxDisassemblyHierarchy::tTreeNode& range = hierarchy.getNode(node);
    std::vector<unsigned> groups;
    for (unsigned k = range.start; k < range.start + range.noGroups; ++k)
        groups.push_back(hierarchy.getGroupIdFromOrderedIndex(k));
    std::sort(groups.begin(), groups.end());
    return groups;
}

}  // namespace velmora
