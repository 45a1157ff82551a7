// Rebuilding a planned tree from its saved nodes: the builder ends in the
// very state the split search left (nodes, group ordering, per-node records,
// edge order), and inconsistent trees are refused with a reason.
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>

#include "velmora/DemoAssemblies.h"
#include "velmora/HierarchyReplay.h"
#include "velmora/Planner.h"

namespace {

using velmora::SavedHierarchyNode;

// The saved form of a planned hierarchy, as a plan report holds it.
std::vector<SavedHierarchyNode> savedNodes(const kxDisassemblyHierarchy& hierarchy)
{
    std::vector<SavedHierarchyNode> nodes;
    for (unsigned id = 0; id < hierarchy.getNoNodes(); ++id) {
        const kxDisassemblyHierarchy::tTreeNode& node = hierarchy.getNode(id);
        if (node.noGroups == kxDisassemblyHierarchy::kNoNode)
            continue;
        SavedHierarchyNode saved;
        saved.id = id;
        saved.parent = node.parent;
        saved.groups = velmora::groupsOfNode(hierarchy, id);
        saved.split = node.firstChild != kxDisassemblyHierarchy::kNoNode;
        saved.directionId = node.splitId;
        saved.staying = node.firstChild;
        saved.moving = node.secondChild;
        nodes.push_back(saved);
    }
    return nodes;
}

std::unique_ptr<velmora::Plan> planned(const velmora::Assembly& assembly,
                                       const std::vector<SavedHierarchyNode>* saved = nullptr)
{
    velmora::PlanOptions options;
    options.hierarchy = true;
    options.threads = 1;
    options.savedHierarchy = saved;
    return velmora::planAssembly(assembly, options);
}

void expectSameBuilderState(const velmora::Plan& a, const velmora::Plan& b)
{
    const kxDisassemblyHierarchy& ha = a.hierarchy();
    const kxDisassemblyHierarchy& hb = b.hierarchy();
    ASSERT_EQ(ha.getNoNodes(), hb.getNoNodes());
    for (unsigned id = 0; id < ha.getNoNodes(); ++id) {
        const auto& x = ha.getNode(id);
        const auto& y = hb.getNode(id);
        EXPECT_EQ(std::tie(x.start, x.noGroups, x.firstChild, x.secondChild, x.parent, x.splitId),
                  std::tie(y.start, y.noGroups, y.firstChild, y.secondChild, y.parent, y.splitId))
            << "node " << id;
        const auto& m = a.builder().getNodeMetadata(id);
        const auto& n = b.builder().getNodeMetadata(id);
        EXPECT_EQ(std::tie(m.relatedNode, m.firstEdge, m.noEdges, m.firstColumn, m.noColumns),
                  std::tie(n.relatedNode, n.firstEdge, n.noEdges, n.firstColumn, n.noColumns))
            << "node " << id;
    }
    const unsigned noGroups = a.groups().getNoGroups();
    for (unsigned k = 0; k < noGroups; ++k) {
        EXPECT_EQ(ha.getGroupIdFromOrderedIndex(k), hb.getGroupIdFromOrderedIndex(k)) << k;
        EXPECT_EQ(ha.getLeafNodeIndexFromGroupId(k), hb.getLeafNodeIndexFromGroupId(k)) << k;
    }
    ASSERT_EQ(a.builder().getNoEdges(), b.builder().getNoEdges());
    for (unsigned e = 0; e < a.builder().getNoEdges(); ++e)
        EXPECT_EQ(a.builder().getEdgeData(e).edgeIndex, b.builder().getEdgeData(e).edgeIndex) << e;
}

TEST(HierarchyReplay, ReplayedDemoTreesMatchTheSearchedOnes)
{
    for (const std::string& name : velmora::demoAssemblyNames()) {
        SCOPED_TRACE(name);
        const velmora::Assembly assembly = velmora::makeDemoAssembly(name);
        const auto searched = planned(assembly);
        const std::vector<SavedHierarchyNode> saved = savedNodes(searched->hierarchy());
        const auto replayed = planned(assembly, &saved);
        expectSameBuilderState(*searched, *replayed);
    }
}

// A three-level tree over four groups: 0 splits into {0} and {1, 2, 3},
// which splits into {1} and {2, 3}, which splits into {2} and {3}.
std::vector<SavedHierarchyNode> fourGroupTree()
{
    const uint32_t none = SavedHierarchyNode::kNone;
    return {{0, none, {0, 1, 2, 3}, true, 0, 1, 2},
            {1, 0, {0}, false, none, none, none},
            {2, 0, {1, 2, 3}, true, 1, 3, 4},
            {3, 2, {1}, false, none, none, none},
            {4, 2, {2, 3}, true, 0, 5, 6},
            {5, 4, {3}, false, none, none, none},
            {6, 4, {2}, false, none, none, none}};
}

TEST(HierarchyReplay, RebuildsRangesAndRefusesInconsistentTrees)
{
    velmora::Assembly assembly;  // four unit boxes in a row
    for (int i = 0; i < 4; ++i)
        assembly.parts.push_back({"box" + std::to_string(i), "(test)", "",
                                  velmora::shapes::box({float(i), 0, 0}, {float(i + 1), 1, 1}), std::nullopt});
    velmora::assignGroups(assembly, velmora::GroupBy::Mesh);
    const auto plan = velmora::planAssembly(assembly);
    const kxMeshGroups& groups = plan->groups();
    ASSERT_EQ(groups.getNoGroups(), 4u);
    const unsigned noDirections = 2;

    const kxDisassemblyHierarchy tree = velmora::HierarchyReplay::rebuild(groups, fourGroupTree(), noDirections);
    // Staying sides first, each range ascending: 0 | 1 | 3 | 2.
    const std::vector<unsigned> ordering = {0, 1, 3, 2};
    for (unsigned k = 0; k < 4; ++k)
        EXPECT_EQ(tree.getGroupIdFromOrderedIndex(k), ordering[k]) << k;
    const std::vector<std::pair<unsigned, unsigned>> ranges = {{0, 4}, {0, 1}, {1, 3}, {1, 1}, {2, 2}, {2, 1}, {3, 1}};
    for (unsigned id = 0; id < ranges.size(); ++id)
        EXPECT_EQ(std::make_pair(tree.getNode(id).start, tree.getNode(id).noGroups), ranges[id]) << id;
    EXPECT_EQ(tree.getLeafNodeIndexFromGroupId(2), 6u);
    EXPECT_EQ(tree.getNode(4).splitId, 0u);

    using Edit = std::function<void(std::vector<SavedHierarchyNode>&)>;
    const std::vector<std::pair<const char*, Edit>> broken = {
        {"an id out of range", [](auto& t) { t[6].id = 7; }},
        {"a repeated id", [](auto& t) { t[6].id = 5; }},
        {"no root", [](auto& t) { t.erase(t.begin()); }},
        {"a missing child", [](auto& t) { t.pop_back(); }},
        {"a wrong parent", [](auto& t) { t[3].parent = 0; }},
        {"a root with a parent", [](auto& t) { t[0].parent = 1; }},
        {"a direction out of range", [](auto& t) { t[2].directionId = 2; }},
        {"overlapping sides", [](auto& t) { t[6].groups = {3}; }},
        {"a side with a foreign group", [](auto& t) { t[6].groups = {0}; }},
        {"a group out of range", [](auto& t) { t[0].groups.push_back(4); }},
        {"a group twice", [](auto& t) { t[1].groups = {0, 0}; }},
        {"an empty node", [](auto& t) { t[1].groups.clear(); }},
        {"a root without every group", [](auto& t) { t[0].groups = {0, 1, 2}; }},
        {"swapped children", [](auto& t) { std::swap(t[0].staying, t[0].moving); }},
        {"a moving side at the wrong id", [](auto& t) { t[4].moving = 3; }},
        {"a node below no one", [](auto& t) { t[4].split = false; }},
    };
    for (const auto& [what, edit] : broken) {
        std::vector<SavedHierarchyNode> tree = fourGroupTree();
        edit(tree);
        EXPECT_THROW(velmora::HierarchyReplay::rebuild(groups, tree, noDirections), std::invalid_argument) << what;
    }
}

}  // namespace
