#include "velmora/PlanRepair.h"

#include "velmora/NodeGroups.h"

#include <algorithm>
#include <map>
#include <set>
#include <tuple>

namespace velmora {
namespace {

// Penalty of a learnt constraint. The search's first pass treats every
// distant constraint as hard; when no split passes that, the later passes
// weigh them by their penalty as a maximum-type cost, and this one, the
// largest below "not blocked", makes a learnt collision the last resort.
constexpr unsigned kHardBlocking = 0xFFFFFFFEu;
// Bit of a direction id that names the opposite sense of the direction.
constexpr unsigned kOppositeSense = 0x80000000u;

std::vector<Wm4::Vector3<double>> directionSet(const kxContactDiagram& diagram)
{
    std::vector<Wm4::Vector3<double>> directions;
    for (unsigned k = 0; k < diagram.getNoDirections(); ++k)
        directions.push_back(diagram.getDirectionFromId(k));
    return directions;
}

unsigned countFailing(const std::vector<SplitVerdict>& verdicts)
{
    return unsigned(std::count_if(verdicts.begin(), verdicts.end(), [](const SplitVerdict& v) { return !v.sweep.clear; }));
}

bool isAncestor(const kxDisassemblyHierarchy& hierarchy, unsigned ancestor, unsigned node)
{
    for (unsigned n = hierarchy.getNode(node).parent; n != kxDisassemblyHierarchy::kNoNode;
         n = hierarchy.getNode(n).parent)
        if (n == ancestor)
            return true;
    return false;
}

bool inSubtrees(const kxDisassemblyHierarchy& hierarchy, const std::vector<unsigned>& roots, unsigned node)
{
    return std::any_of(roots.begin(), roots.end(),
                       [&](unsigned root) { return root == node || isAncestor(hierarchy, root, node); });
}

// A split as the sweep sees it: direction, moving groups, staying groups.
using SplitKey = std::tuple<unsigned, std::vector<unsigned>, std::vector<unsigned>>;
using SweepCache = std::map<SplitKey, SweepOutcome>;


SplitKey splitKey(const kxDisassemblyHierarchy& hierarchy, unsigned node)
{
    const kxDisassemblyHierarchy::tTreeNode& split = hierarchy.getNode(node);
    return {split.splitId, groupsOfNode(hierarchy, split.secondChild), groupsOfNode(hierarchy, split.firstChild)};
}

void remember(const kxDisassemblyHierarchy& hierarchy, const std::vector<SplitVerdict>& verdicts, SweepCache& cache)
{
    for (const SplitVerdict& verdict : verdicts)
        cache.emplace(splitKey(hierarchy, verdict.node), verdict.sweep);
}

// The verdicts after the subtrees at `roots` were planned again: those of
// splits outside them are kept, the others are looked up among the splits
// swept before (a re-planned subtree mostly repeats them) or swept anew.
std::vector<SplitVerdict> reverifySubtrees(const PlanVerifier& verifier, const kxDisassemblyHierarchy& hierarchy,
                                           const std::vector<Wm4::Vector3<double>>& directions,
                                           const std::vector<SplitVerdict>& previous,
                                           const std::vector<unsigned>& roots, SweepCache& cache)
{
    std::vector<SplitVerdict> kept;
    for (const SplitVerdict& verdict : previous) {
        const kxDisassemblyHierarchy::tTreeNode& node = hierarchy.getNode(verdict.node);
        // A slot of a replanned subtree may now be unused (all ones) and so
        // outside every subtree: only splits still in place are kept.
        if (node.noGroups != kxDisassemblyHierarchy::kNoNode && !inSubtrees(hierarchy, roots, verdict.node))
            kept.push_back(verdict);
    }
    std::vector<unsigned> nodes;
    for (unsigned id = 0; id < hierarchy.getNoNodes(); ++id) {
        const kxDisassemblyHierarchy::tTreeNode& node = hierarchy.getNode(id);
        if (node.noGroups != kxDisassemblyHierarchy::kNoNode && node.firstChild != kxDisassemblyHierarchy::kNoNode &&
            inSubtrees(hierarchy, roots, id)) {
            const auto known = cache.find(splitKey(hierarchy, id));
            if (known != cache.end())
                kept.push_back(SplitVerdict{id, node.splitId, known->second});
            else
                nodes.push_back(id);
        }
    }
    std::vector<SplitVerdict> verdicts = verifier.verifySplits(hierarchy, directions, nodes);
    remember(hierarchy, verdicts, cache);
    verdicts.insert(verdicts.end(), kept.begin(), kept.end());
    std::sort(verdicts.begin(), verdicts.end(), [](const auto& a, const auto& b) { return a.node < b.node; });
    return verdicts;
}

using GroupSet = std::set<unsigned>;

GroupSet clusterGroups(const kxGroupsClustering& clustering, unsigned id, kx2SATState& scratch)
{
    clustering.getCluster(id, scratch);
    GroupSet groups;
    scratch.forEachTrueVar([&](unsigned g) { groups.insert(g); });
    return groups;
}

bool intersects(const GroupSet& a, const GroupSet& b)
{
    return std::any_of(a.begin(), a.end(), [&](unsigned g) { return b.count(g) != 0; });
}

// `set` grown by every cluster that crosses it (overlaps it with neither
// holding the other), so that keeping it whole drops no cluster: clusters
// must nest.
GroupSet nestingClosure(const kxGroupsClustering& clustering, GroupSet set, kx2SATState& scratch)
{
    for (bool grown = true; grown;) {
        grown = false;
        for (unsigned id = 0; id < clustering.getNoClusters(); ++id) {
            const GroupSet cluster = clusterGroups(clustering, id, scratch);
            const bool nested = std::includes(set.begin(), set.end(), cluster.begin(), cluster.end()) ||
                                std::includes(cluster.begin(), cluster.end(), set.begin(), set.end());
            if (!nested && intersects(set, cluster)) {
                set.insert(cluster.begin(), cluster.end());
                grown = true;
            }
        }
    }
    return set;
}

// Pairs of groups joined into connected sets.
std::vector<GroupSet> connectedSets(const std::vector<std::pair<unsigned, unsigned>>& pairs)
{
    std::vector<GroupSet> sets;
    for (const auto& [a, b] : pairs) {
        GroupSet joined{a, b};
        std::erase_if(sets, [&](const GroupSet& set) {
            if (!intersects(set, joined))
                return false;
            joined.insert(set.begin(), set.end());
            return true;
        });
        sets.push_back(std::move(joined));
    }
    return sets;
}

// Makes every connected set of the pairs a cluster the builder never splits.
void keepWhole(kxGroupsClustering& clustering, const std::vector<std::pair<unsigned, unsigned>>& pairs,
               unsigned noGroups)
{
    kx2SATState scratch(noGroups);
    for (const GroupSet& set : connectedSets(pairs)) {
        scratch.clear(false);
        for (unsigned g : nestingClosure(clustering, set, scratch))
            scratch.setTrue(g);
        clustering.pushCluster(scratch, false);
    }
}

// Failing splits whose first colliding pair is not kept together yet: the
// pair (lower id first) is added to `pairs` and the split's node returned.
std::vector<unsigned> newlyInseparable(const std::vector<SplitVerdict>& verdicts,
                                       std::vector<std::pair<unsigned, unsigned>>& pairs)
{
    std::vector<unsigned> nodes;
    for (const SplitVerdict& verdict : verdicts) {
        const std::pair<unsigned, unsigned> pair = std::minmax(verdict.sweep.movingGroup, verdict.sweep.stayingGroup);
        if (verdict.sweep.clear || std::find(pairs.begin(), pairs.end(), pair) != pairs.end())
            continue;
        pairs.push_back(pair);
        nodes.push_back(verdict.node);
    }
    return nodes;
}

// Both senses of every direction of the set, in the order of their ids: k
// (along +D[k]) at 2k, k | kOppositeSense (along -D[k]) at 2k + 1.
std::vector<Wm4::Vector3<double>> bothSenses(const std::vector<Wm4::Vector3<double>>& directions)
{
    std::vector<Wm4::Vector3<double>> senses;
    for (const Wm4::Vector3<double>& d : directions) {
        senses.push_back(d);
        senses.push_back(-d);
    }
    return senses;
}

// Learns colliding pairs as blocking constraints of the builder. The first
// time a pair collides, only the direction of its split is learnt (the
// collision the sweep saw). A pair that collides again, along another
// direction, usually collides along many, and the search would try them one
// round at a time: so it is swept alone along every direction of the set in
// both senses, and every direction it collides along is learnt at once (a
// split moving one of them that way collides whatever else moves). Sweeping
// only repeat offenders keeps the cost of the sweeps where rounds are saved.
class PairLearner {
public:
    PairLearner(kxDisassemblyHierarchyBuilder& builder, const PlanVerifier& verifier)
        : mBuilder(builder), mVerifier(verifier),
          mSenses(bothSenses(directionSet(builder.getContactDiagram())))
    {
    }

    // Learns that `moving` collides with `staying` moving along +D[direction];
    // returns the number of directions newly learnt for the pair.
    unsigned learn(unsigned moving, unsigned staying, unsigned direction)
    {
        // Kept for the pair (lower id first), as that one moving from the other.
        const unsigned lower = std::min(moving, staying), upper = std::max(moving, staying);
        tPairKnowledge& known = mPairs[{lower, upper}];
        if (known.swept)
            return 0;
        const unsigned id = moving == lower ? direction : direction | kOppositeSense;
        std::vector<unsigned> blocked;
        if (known.ids.empty()) {
            blocked.push_back(id);
        } else {
            const std::vector<SweepOutcome> sweeps = mVerifier.sweepAlong({lower}, {upper}, mSenses, true);
            for (unsigned j = 0; j < sweeps.size(); ++j) {
                const unsigned signedId = j / 2 | (j % 2 ? kOppositeSense : 0u);
                if (!sweeps[j].clear && !known.ids.count(signedId))
                    blocked.push_back(signedId);
            }
            known.swept = true;
        }
        if (blocked.empty())
            return 0;
        known.ids.insert(blocked.begin(), blocked.end());
        std::vector<unsigned> penalties(blocked.size(), kHardBlocking);
        mBuilder.pushDistantConstraint(lower, upper, blocked, penalties);
        return unsigned(blocked.size());
    }

private:
    struct tPairKnowledge {
        std::set<unsigned> ids;  // learnt, the lower group moving from the upper
        bool swept = false;      // every direction learnt
    };

    kxDisassemblyHierarchyBuilder& mBuilder;
    const PlanVerifier& mVerifier;
    const std::vector<Wm4::Vector3<double>> mSenses;
    std::map<std::pair<unsigned, unsigned>, tPairKnowledge> mPairs;
};

}  // namespace

RepairOutcome verifyAndRepair(kxDisassemblyHierarchyBuilder& builder, const PlanVerifier& verifier,
                              unsigned maxRounds, bool keepInseparable)
{
    const kxDisassemblyHierarchy& hierarchy = builder.getHierarchy();
    const std::vector<Wm4::Vector3<double>> directions = directionSet(builder.getContactDiagram());
    PairLearner learner(builder, verifier);
    RepairOutcome outcome;
    std::vector<unsigned> replanned;  // subtrees searched again in the last round
    SweepCache cache;
    for (;;) {
        if (outcome.rounds == 0) {
            outcome.verdicts = verifier.verifyHierarchy(hierarchy, directions);
            remember(hierarchy, outcome.verdicts, cache);
        } else {
            outcome.verdicts = reverifySubtrees(verifier, hierarchy, directions, outcome.verdicts, replanned, cache);
        }
        if (++outcome.rounds == 1)
            outcome.initiallyFailing = countFailing(outcome.verdicts);
        if (outcome.rounds >= std::max(1u, maxRounds))
            break;
        std::vector<unsigned> replan;
        for (const SplitVerdict& verdict : outcome.verdicts) {
            unsigned learnt = 0;
            for (const Collision& blocker : verdict.sweep.blockers)
                learnt += learner.learn(blocker.movingGroup, blocker.stayingGroup, verdict.direction);
            outcome.learntConstraints += learnt;
            if (learnt != 0)
                replan.push_back(verdict.node);
        }
        if (replan.empty() && keepInseparable) {
            replan = newlyInseparable(outcome.verdicts, outcome.keptTogether);
            if (!replan.empty()) {
                if (!builder.getGroupsClustering()) {
                    outcome.clustering = std::make_shared<kxGroupsClustering>(builder.getMeshGroups().getNoGroups());
                    builder.setGroupsClustering(outcome.clustering.get());
                }
                keepWhole(*builder.getGroupsClustering(), outcome.keptTogether, builder.getMeshGroups().getNoGroups());
            }
        }
        if (replan.empty())
            break;
        // Search again only the outermost failing subtrees; the rest of the
        // tree is copied back unchanged.
        const std::vector<unsigned> failing = replan;
        std::erase_if(replan, [&](unsigned node) {
            return std::any_of(failing.begin(), failing.end(),
                               [&](unsigned other) { return isAncestor(hierarchy, other, node); });
        });
        const kxDisassemblyHierarchy snapshot(hierarchy);
        builder.initSolver();
        builder.copyGroupsHierarchy(snapshot);
        for (unsigned node : replan)
            builder.computeGroupsHierarchy(node, nullptr);
        replanned = replan;
    }
    const unsigned failing = countFailing(outcome.verdicts);
    outcome.repaired = outcome.initiallyFailing > failing ? outcome.initiallyFailing - failing : 0;
    return outcome;
}

std::vector<unsigned> stuckContacts(const kxContactDiagram& diagram)
{
    std::vector<unsigned> stuck;
    for (unsigned e = 0; e < diagram.getNoContacts(); ++e)
        if (diagram.getDisassemblyDirections(e).empty())
            stuck.push_back(e);
    return stuck;
}

}  // namespace velmora
