// Random hand-made builder states (fixed seeds) against a plain reference of
// the procedure that works on lists of steps and looks at every edge of the
// builder, and a linear-search reference of the constraint lookup.
#include "ProcedureTestSupport.h"

#include <map>
#include <random>
#include <set>
#include <string>

using namespace procedure_test;

namespace
{
struct RefStep
{
    std::vector<unsigned> nodes;  // ascending
    unsigned signedDirection;
};

// What the node removed first may do while the other stays in place.
struct RefConstraint
{
    bool touch = false;
    std::set<unsigned> allowed;
};

class ReferenceProcedure
{
public:
    ReferenceProcedure(const kxDisassemblyHierarchyBuilder& builder, unsigned part)
        : mB(builder), mH(builder.getHierarchy()), mPart(part)
    {
        buildNaive();
        buildConstraints();
        simplify();
    }

    std::vector<unsigned> ordering() const
    {
        std::vector<unsigned> nodes;
        for (const RefStep& s : mSteps)
            nodes.insert(nodes.end(), s.nodes.begin(), s.nodes.end());
        return nodes;
    }
    const std::vector<RefStep>& steps() const { return mSteps; }
    unsigned noNaiveSteps() const { return mNoNaiveSteps; }
    const std::map<std::pair<unsigned, unsigned>, RefConstraint>& constraints() const { return mConstraints; }

private:
    bool holds(unsigned node, unsigned inner) const
    {
        const auto& a = mH.getNode(node);
        const auto& b = mH.getNode(inner);
        return b.start >= a.start && b.start + b.noGroups <= a.start + a.noGroups;
    }
    std::vector<unsigned> groupsOf(unsigned node) const
    {
        std::vector<unsigned> groups;
        const auto& n = mH.getNode(node);
        for (unsigned k = n.start; k < n.start + n.noGroups; ++k)
            groups.push_back(mH.getGroupIdFromOrderedIndex(k));
        return groups;
    }

    // Down from the root: at each level the child without the part leaves.
    void buildNaive()
    {
        unsigned p = 0;
        while (p != mPart)
        {
            const auto& n = mH.getNode(p);
            const bool partInSecond = holds(n.secondChild, mPart);
            const unsigned removed = partInSecond ? n.firstChild : n.secondChild;
            mSteps.push_back({{removed}, 2 * n.splitId + (partInSecond ? 1u : 0u)});
            p = partInSecond ? n.secondChild : n.firstChild;
        }
        mSteps.push_back({{mPart}, kNone});
        mNoNaiveSteps = unsigned(mSteps.size());
    }

    // Every edge of the builder between the groups of x and of a later y.
    void buildConstraints()
    {
        const unsigned noSigned = 2 * mB.getContactDiagram().getNoDirections();
        for (unsigned i = 0; i < mSteps.size(); ++i)
        {
            const unsigned x = mSteps[i].nodes[0];
            const std::vector<unsigned> xGroups = groupsOf(x);
            for (unsigned j = i + 1; j < mSteps.size(); ++j)
            {
                const unsigned y = mSteps[j].nodes[0];
                const std::vector<unsigned> yGroups = groupsOf(y);
                for (unsigned e = 0; e < mB.getNoEdges(); ++e)
                {
                    const auto& edge = mB.getEdgeData(e);
                    const bool forward = contains(xGroups, edge.groupA) && contains(yGroups, edge.groupB);
                    const bool backward = contains(xGroups, edge.groupB) && contains(yGroups, edge.groupA);
                    if (!forward && !backward)
                        continue;
                    std::set<unsigned> listed;
                    for (const unsigned word : edge.admissibleIds)
                        listed.insert((2 * (word & 0x7FFFFFFFu) + (word >> 31)) ^ (backward ? 1u : 0u));
                    std::set<unsigned> edgeAllows;
                    for (unsigned s = 0; s < noSigned; ++s)
                    {
                        if ((listed.count(s) != 0) != (edge.isDistant != 0) || s == mSteps[i].signedDirection)
                            edgeAllows.insert(s);
                    }
                    auto [it, inserted] = mConstraints.try_emplace({x, y});
                    if (inserted)
                        it->second.allowed = edgeAllows;
                    else
                        it->second.allowed = intersection(it->second.allowed, edgeAllows);
                    it->second.touch = it->second.touch || edge.isDistant == 0;
                }
            }
        }
    }

    const RefConstraint* find(unsigned x, unsigned y) const
    {
        const auto it = mConstraints.find({x, y});
        return it == mConstraints.end() ? nullptr : &it->second;
    }

    bool canJoin(unsigned node, unsigned target) const
    {
        bool touch = false;
        for (const unsigned y : mSteps[target].nodes)
        {
            if (const RefConstraint* c = find(node, y))
                touch = touch || c->touch;
        }
        for (unsigned later = target + 1; later < mSteps.size(); ++later)
        {
            for (const unsigned y : mSteps[later].nodes)
            {
                const RefConstraint* c = find(node, y);
                if (c && c->allowed.count(mSteps[target].signedDirection) == 0)
                    return false;
            }
        }
        return touch;
    }

    bool staysWhileLeaving(unsigned node, unsigned target) const
    {
        for (const unsigned y : mSteps[target].nodes)
        {
            const RefConstraint* c = find(node, y);
            if (c && c->allowed.count(mSteps[target].signedDirection ^ 1u) == 0)
                return false;
        }
        return true;
    }

    void simplify()
    {
        const unsigned k = unsigned(mSteps.size());
        for (int t = int(k) - 2; t >= 1; --t)
        {
            const unsigned node = mSteps[t - 1].nodes[0];
            for (unsigned target = unsigned(t); target + 1 < mSteps.size(); ++target)
            {
                if (canJoin(node, target))
                {
                    std::vector<unsigned>& nodes = mSteps[target].nodes;
                    nodes.insert(std::lower_bound(nodes.begin(), nodes.end(), node), node);
                    mSteps.erase(mSteps.begin() + (t - 1));
                    break;
                }
                if (!staysWhileLeaving(node, target))
                    break;
            }
        }
    }

    static bool contains(const std::vector<unsigned>& v, unsigned x)
    {
        return std::find(v.begin(), v.end(), x) != v.end();
    }
    static std::set<unsigned> intersection(const std::set<unsigned>& a, const std::set<unsigned>& b)
    {
        std::set<unsigned> out;
        std::set_intersection(a.begin(), a.end(), b.begin(), b.end(), std::inserter(out, out.begin()));
        return out;
    }

    const kxDisassemblyHierarchyBuilder& mB;
    const kxDisassemblyHierarchy& mH;
    unsigned mPart;
    std::vector<RefStep> mSteps;
    unsigned mNoNaiveSteps = 0;
    std::map<std::pair<unsigned, unsigned>, RefConstraint> mConstraints;
};

// Unit vectors at least 6 degrees off each other's lines.
std::vector<Wm4::Vector3<double>> directionPool(unsigned count, std::mt19937& rng)
{
    std::normal_distribution<double> normal;
    std::vector<Wm4::Vector3<double>> pool;
    while (pool.size() < count)
    {
        Wm4::Vector3<double> v(normal(rng), normal(rng), normal(rng));
        v /= std::sqrt(v.Dot(v));
        bool apart = true;
        for (const auto& u : pool)
            apart = apart && std::fabs(u.Dot(v)) < std::cos(6.0 * 3.141592653589793 / 180.0);
        if (apart)
            pool.push_back(v);
    }
    return pool;
}

// A random assembly of n groups: contact edges with a few directions taken
// from a pool of `noLines` lines, some distant constraints, and a random full
// hierarchy (random moving sides, random direction ids).
std::unique_ptr<HandAssembly> randomAssembly(unsigned n, unsigned noLines, std::mt19937& rng)
{
    auto a = std::make_unique<HandAssembly>(n);
    const std::vector<Wm4::Vector3<double>> pool = directionPool(noLines, rng);
    // One edge carries every line once, so that the set has them all.
    a->addContact(0, 1, pool);
    std::uniform_int_distribution<unsigned> group(0, n - 1);
    std::uniform_int_distribution<unsigned> line(0, noLines - 1);
    std::uniform_int_distribution<unsigned> count(0, 3);
    const unsigned noEdges = 2 * n;
    for (unsigned e = 0; e < noEdges; ++e)
    {
        const unsigned ga = group(rng);
        const unsigned gb = (ga + 1 + group(rng) % (n - 1)) % n;
        std::vector<Wm4::Vector3<double>> dirs;
        for (unsigned c = count(rng); c > 0; --c)
            dirs.push_back(pool[line(rng)] * ((rng() & 1u) ? -1.0 : 1.0));
        a->addContact(ga, gb, dirs);
    }
    a->finishEdges();
    for (unsigned d = 0; d < n / 2; ++d)
    {
        const unsigned ga = group(rng);
        const unsigned gb = (ga + 1 + group(rng) % (n - 1)) % n;
        std::vector<Wm4::Vector3<double>> blocked;
        for (unsigned c = 1 + count(rng); c > 0; --c)
            blocked.push_back(pool[line(rng)] * ((rng() & 1u) ? -1.0 : 1.0));
        a->addDistant(ga, gb, blocked);
    }

    // Split every node of two or more groups, depth first.
    std::vector<unsigned> open{0};
    std::uniform_int_distribution<unsigned> directionId(0, a->diagram().getNoDirections() - 1);
    while (!open.empty())
    {
        const unsigned node = open.back();
        open.pop_back();
        const auto& treeNode = a->reference().getNode(node);
        if (treeNode.noGroups < 2)
            continue;
        std::vector<unsigned> groups;
        for (unsigned k = treeNode.start; k < treeNode.start + treeNode.noGroups; ++k)
            groups.push_back(a->reference().getGroupIdFromOrderedIndex(k));
        std::shuffle(groups.begin(), groups.end(), rng);
        const unsigned noSecond = 1 + rng() % (groups.size() - 1);
        a->splitRaw(node, std::vector<unsigned>(groups.begin(), groups.begin() + noSecond), directionId(rng));
        open.push_back(a->reference().getNode(node).secondChild);
        open.push_back(a->reference().getNode(node).firstChild);
    }
    a->commit();
    return a;
}

void expectMatchesReference(const kxSinglePartDisassemblyProcedure& p, const ReferenceProcedure& ref,
                            const std::string& where)
{
    EXPECT_EQ(p.getOrdering(), ref.ordering()) << where;
    ASSERT_EQ(p.getSteps().size(), ref.steps().size()) << where;
    unsigned start = 0;
    for (unsigned s = 0; s < ref.steps().size(); ++s)
    {
        const auto& step = p.getSteps()[s];
        EXPECT_EQ(step.start, start) << where << " step " << s;
        EXPECT_EQ(step.noNodes, ref.steps()[s].nodes.size()) << where << " step " << s;
        EXPECT_EQ(step.signedDirection, ref.steps()[s].signedDirection) << where << " step " << s;
        start += step.noNodes;
    }
}

// The constraint table against the reference: same pairs, touch bits, rows.
void expectSameConstraints(const kxSinglePartDisassemblyProcedure& p, const ReferenceProcedure& ref,
                           const std::string& where)
{
    unsigned total = 0;
    for (const unsigned x : p.getOrdering())
    {
        const std::vector<unsigned> list = Access::constraintsOf(p, x);
        total += unsigned(list.size());
        for (unsigned i = 0; i < list.size(); ++i)
        {
            const unsigned y = list[i] & 0x7FFFFFFFu;
            if (i > 0)
            {
                EXPECT_LT(list[i - 1] & 0x7FFFFFFFu, y) << where;
            }
            const auto it = ref.constraints().find({x, y});
            ASSERT_NE(it, ref.constraints().end()) << where << " " << x << " about " << y;
            EXPECT_EQ((list[i] & kTouch) != 0, it->second.touch) << where;
            const std::vector<unsigned> row = Access::rowDirections(p, Access::firstConstraintOf(p, x) + i);
            EXPECT_EQ(std::set<unsigned>(row.begin(), row.end()), it->second.allowed) << where << " " << x << "/" << y;
        }
    }
    EXPECT_EQ(total, ref.constraints().size()) << where;
    EXPECT_EQ(total, Access::noConstraints(p)) << where;
}

// The written hierarchy is a chain: each step's groups split off the groups
// still in place, on the side of their sign, ending in the part's leaf.
void expectChainHierarchy(const kxSinglePartDisassemblyProcedure& p, const kxDisassemblyHierarchy& source,
                          const kxDisassemblyHierarchy& out, const std::string& where)
{
    auto groupsOf = [&](unsigned node) {
        std::vector<unsigned> groups;
        const auto& n = out.getNode(node);
        for (unsigned k = n.start; k < n.start + n.noGroups; ++k)
            groups.push_back(out.getGroupIdFromOrderedIndex(k));
        return groups;
    };
    unsigned current = 0;
    unsigned noUsed = 1;
    for (unsigned s = 0; s + 1 < p.getSteps().size(); ++s)
    {
        const auto& node = out.getNode(current);
        const unsigned signedDirection = p.getSteps()[s].signedDirection;
        ASSERT_NE(node.firstChild, kNone) << where;
        EXPECT_EQ(node.splitId, signedDirection >> 1) << where;
        const bool against = (signedDirection & 1u) != 0;
        const unsigned removed = against ? node.firstChild : node.secondChild;
        std::vector<unsigned> groups = groupsOf(removed);
        // Stable partitions of an ascending ordering keep every range ascending.
        EXPECT_TRUE(std::is_sorted(groups.begin(), groups.end())) << where;
        EXPECT_EQ(groups, stepGroups(p, source, s)) << where << " step " << s;
        EXPECT_EQ(out.getNode(removed).firstChild, kNone) << where;
        for (const unsigned g : groups)
            EXPECT_EQ(out.getLeafNodeIndexFromGroupId(g), removed) << where;
        current = against ? node.secondChild : node.firstChild;
        noUsed += 2;
    }
    EXPECT_EQ(out.getNode(current).firstChild, kNone) << where;
    EXPECT_EQ(groupsOf(current), stepGroups(p, source, unsigned(p.getSteps().size()) - 1)) << where;
    unsigned noUnused = 0;
    for (unsigned id = 0; id < out.getNoNodes(); ++id)
        noUnused += out.getNode(id).noGroups == kNone ? 1u : 0u;
    EXPECT_EQ(noUnused, out.getNoNodes() - noUsed) << where;
    for (unsigned k = 0; k < out.getMeshGroups().getNoGroups(); ++k)
        EXPECT_EQ(out.getOrderedIndexFromGroupId(out.getGroupIdFromOrderedIndex(k)), k) << where;
}
}  // namespace

// For every leaf of random assemblies: the constraint table, the merged steps
// and the ordering equal the reference; the procedure never has more steps
// than the naive one; the part's step is last with direction all ones; the
// written hierarchy is the chain of the steps. Rows span several 64-bit words.
TEST(SinglePartProcedureReference, RandomAssembliesMatchTheReference)
{
    std::mt19937 rng(20240611);
    unsigned noMerged = 0;
    for (unsigned trial = 0; trial < 40; ++trial)
    {
        const unsigned n = 2 + trial % 9;
        const unsigned noLines = trial % 2 == 0 ? 3 : 40;
        const std::unique_ptr<HandAssembly> a = randomAssembly(n, noLines, rng);
        ASSERT_EQ(a->diagram().getNoDirections(), noLines);
        kxSinglePartDisassemblyProcedure p(a->builder());
        for (unsigned g = 0; g < n; ++g)
        {
            const std::string where = "trial " + std::to_string(trial) + " group " + std::to_string(g);
            const unsigned leaf = a->leafOf(g);
            const ReferenceProcedure ref(a->builder(), leaf);

            Access::initializeRemovalOrdering(p, leaf);
            Access::initializeConstraintList(p);
            expectSameConstraints(p, ref, where);

            testing::internal::CaptureStdout();
            p.buildProcedure(leaf);
            const std::string log = testing::internal::GetCapturedStdout();
            std::string expectedLog;
            for (unsigned j = 0; j + 3 <= ref.noNaiveSteps(); ++j)
                expectedLog += "simplifying step : " + std::to_string(j) + " / " +
                               std::to_string(ref.noNaiveSteps() - 2) + "\n";
            EXPECT_EQ(log, expectedLog) << where;

            expectMatchesReference(p, ref, where);
            EXPECT_LE(p.getSteps().size(), ref.noNaiveSteps()) << where;
            noMerged += ref.noNaiveSteps() - unsigned(p.getSteps().size());
            EXPECT_EQ(p.getOrdering().back(), leaf) << where;
            EXPECT_EQ(p.getSteps().back().signedDirection, kNone) << where;
            EXPECT_EQ(p.getSteps().back().noNodes, 1u) << where;

            kxDisassemblyHierarchy out(a->groups());
            p.copyToDisassemblyHierarchy(out);
            expectChainHierarchy(p, a->hierarchy(), out, where);
            // Writing over a hierarchy that already holds a tree (here the
            // source, with its own group ordering) gives the same chain.
            kxDisassemblyHierarchy over(a->hierarchy());
            p.copyToDisassemblyHierarchy(over);
            for (unsigned s = 0; s + 1 < p.getSteps().size(); ++s)
            {
                for (const unsigned group : stepGroups(p, a->hierarchy(), s))
                {
                    const unsigned leafOut = over.getLeafNodeIndexFromGroupId(group);
                    EXPECT_EQ(leafOut, out.getLeafNodeIndexFromGroupId(group)) << where;
                }
            }
        }
    }
    // The random states must exercise merging, or the comparison says little.
    EXPECT_GT(noMerged, 20u);
}

// The constraint lookup against a linear search, for lists of every length
// and every node id (present or not).
TEST(SinglePartProcedureReference, FindRequestedNodeCstMatchesLinearSearch)
{
    std::mt19937 rng(77);
    const unsigned n = 12;
    for (unsigned trial = 0; trial < 30; ++trial)
    {
        // A chain: the root splits off group n-1, its first child group n-2,
        // and so on down to group 0, the part. Group n-1 touches a random
        // subset of the others, so the first removed node has that many
        // constraints, about nodes of decreasing id along the ordering.
        HandAssembly a(n);
        a.addContact(0, 1, {kZ});
        for (unsigned g = 0; g + 1 < n; ++g)
        {
            if (rng() % 3 != 0 || trial % 10 == 0)
                a.addContact(n - 1, g, {kZ});
        }
        a.finishEdges();
        for (unsigned level = 0; level + 1 < n; ++level)
            a.split(level, {n - 1 - level}, kZ);
        a.commit();

        kxSinglePartDisassemblyProcedure p(a.builder());
        testing::internal::CaptureStdout();
        p.buildProcedure(a.leafOf(0));
        testing::internal::GetCapturedStdout();
        const unsigned first = a.leafOf(n - 1);
        // Every node's list, the first removed node's above all.
        for (const unsigned node : p.getOrdering())
        {
            const std::vector<unsigned> list = Access::constraintsOf(p, node);
            const unsigned base = Access::firstConstraintOf(p, node);
            for (unsigned other = 0; other < a.hierarchy().getNoNodes() + 2; ++other)
            {
                unsigned expected = kNone;
                for (unsigned i = 0; i < list.size(); ++i)
                {
                    if ((list[i] & 0x7FFFFFFFu) == other)
                        expected = base + i;
                }
                EXPECT_EQ(Access::findRequestedNodeCst(p, other, node), expected)
                    << "trial " << trial << " node " << node << " other " << other;
            }
        }
        EXPECT_GE(Access::constraintsOf(p, first).size(), trial % 10 == 0 ? n - 1 : 0u);
    }
}
