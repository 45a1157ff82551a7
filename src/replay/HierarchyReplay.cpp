#include "velmora/HierarchyReplay.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <string>

#include "kxMeshGroups.h"

namespace velmora {
namespace {

using Node = SavedHierarchyNode;

[[noreturn]] void fail(uint32_t id, const std::string& what)
{
    throw std::invalid_argument("hierarchy node " + std::to_string(id) + " " + what);
}

// Places the saved nodes into a hierarchy's slots, checking each as it goes.
class TreePlacer {
public:
    TreePlacer(const std::vector<const Node*>& byId, unsigned noGroups, unsigned noDirections,
               std::vector<kxDisassemblyHierarchy::tTreeNode>& slots, std::vector<unsigned>& ordering)
        : mById(byId), mNoGroups(noGroups), mNoDirections(noDirections), mSlots(slots), mOrdering(ordering),
          mReached(byId.size(), false)
    {
    }

    // Places node `id` (whose parent is `parent`) with its range at `start`
    // and its subtree; returns its groups, ascending.
    std::vector<uint32_t> place(uint32_t id, uint32_t parent, uint32_t start)
    {
        if (id >= mById.size() || mById[id] == nullptr)
            fail(id, "is missing");
        if (mReached[id])
            fail(id, "is reached twice");
        mReached[id] = true;
        const Node& node = *mById[id];
        if (node.parent != parent)
            fail(id, "has the wrong parent");
        const std::vector<uint32_t> groups = checkedGroups(node);
        const uint32_t size = uint32_t(groups.size());
        mSlots[id] = {start, size, Node::kNone, Node::kNone, parent, Node::kNone};
        if (!node.split) {
            mOrdering.insert(mOrdering.end(), groups.begin(), groups.end());
            return groups;
        }
        if (node.directionId >= mNoDirections)
            fail(id, "splits along a direction that does not exist");
        if (node.staying != id + 1)
            fail(id, "has a staying side with the wrong id");
        const std::vector<uint32_t> staying = place(node.staying, id, start);
        if (staying.size() >= groups.size() || node.moving != id + 2 * uint32_t(staying.size()))
            fail(id, "has a moving side with the wrong id");
        const std::vector<uint32_t> moving = place(node.moving, id, start + uint32_t(staying.size()));
        std::vector<uint32_t> both;
        std::merge(staying.begin(), staying.end(), moving.begin(), moving.end(), std::back_inserter(both));
        if (both != groups)
            fail(id, "is not split into its own groups");
        mSlots[id].firstChild = node.staying;
        mSlots[id].secondChild = node.moving;
        mSlots[id].splitId = node.directionId;
        return groups;
    }

    // The id of a saved node that `place` never reached, or kNone.
    uint32_t unreached() const
    {
        for (uint32_t id = 0; id < mById.size(); ++id)
            if (mById[id] != nullptr && !mReached[id])
                return id;
        return Node::kNone;
    }

private:
    std::vector<uint32_t> checkedGroups(const Node& node) const
    {
        std::vector<uint32_t> groups = node.groups;
        std::sort(groups.begin(), groups.end());
        if (groups.empty())
            fail(node.id, "has no groups");
        if (groups.back() >= mNoGroups)
            fail(node.id, "names a group that does not exist");
        if (std::adjacent_find(groups.begin(), groups.end()) != groups.end())
            fail(node.id, "names a group twice");
        return groups;
    }

    const std::vector<const Node*>& mById;
    unsigned mNoGroups;
    unsigned mNoDirections;
    std::vector<kxDisassemblyHierarchy::tTreeNode>& mSlots;
    std::vector<unsigned>& mOrdering;
    std::vector<bool> mReached;
};

}  // namespace

kxDisassemblyHierarchy HierarchyReplay::rebuild(const kxMeshGroups& groups, const std::vector<SavedHierarchyNode>& nodes,
                                                unsigned noDirections)
{
    kxDisassemblyHierarchy hierarchy(groups);
    const unsigned noGroups = groups.getNoGroups();
    std::vector<const Node*> byId(hierarchy.mNodes.size(), nullptr);
    for (const Node& node : nodes) {
        if (node.id >= byId.size())
            fail(node.id, "is out of range");
        if (byId[node.id] != nullptr)
            fail(node.id, "appears twice");
        byId[node.id] = &node;
    }
    std::vector<unsigned> ordering;
    ordering.reserve(noGroups);
    TreePlacer placer(byId, noGroups, noDirections, hierarchy.mNodes, ordering);
    if (placer.place(0, Node::kNone, 0).size() != noGroups)
        fail(0, "does not hold every group");
    if (const uint32_t lost = placer.unreached(); lost != Node::kNone)
        fail(lost, "is not below the root");
    hierarchy.mGroupIdFromOrderedIndex = ordering;
    hierarchy.computeHierarchyIndexing(0);
    return hierarchy;
}

}  // namespace velmora
