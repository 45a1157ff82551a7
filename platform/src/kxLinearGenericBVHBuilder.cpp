#include "kxLinearGenericBVHBuilder.h"

#include <algorithm>
#include <array>
#include <limits>

namespace kx {

namespace {

// Centroid bins per axis for large ranges; small ranges use one bin per
// primitive (at least 4), which keeps the fixed cost per node low.
constexpr int kBins = 32;
constexpr int kMinBins = 4;
// Cost of visiting one more node, in units of one primitive test. Contact and
// distance queries pay far more per primitive than per box, so small leaves
// with tight boxes win.
constexpr float kTraversalCost = 1.0f;

struct Bin {
    kxBBox box;
    unsigned count = 0;
};

struct Split {
    int axis = -1;  // -1: no split through distinct centroid bins exists
    int lastLeftBin = 0;
    float cost = std::numeric_limits<float>::infinity();  // Σ half area × count of both sides
    kxBBox leftBox;
    kxBBox rightBox;
};

struct Task {
    unsigned node;
    unsigned begin;
    unsigned end;
};

// One primitive as the build moves it around: the ranges of the tree are
// ranges of this array, so the passes over a range read memory in order.
struct Primitive {
    kxBBox box;
    Wm4::Vector3<float> centroid;
    unsigned input;  // index into the builder's arrays
};

// Maps a centroid coordinate to one of `bins` bins; out-of-range values
// (rounding at the top, NaN) are clamped.
struct Binning {
    float lo;
    float scale;
    int bins;
    int operator()(float c) const
    {
        const float f = (c - lo) * scale;
        if (!(f > 0.0f))
            return 0;
        return f < float(bins) ? static_cast<int>(f) : bins - 1;
    }
};

class Builder {
public:
    Builder(const kxLinearGenericBVHBuilder& input, unsigned maxLeafSize) : mMaxLeafSize(std::max(1u, maxLeafSize))
    {
        const unsigned n = input.mNoPrimitives;
        mPrimitives.resize(n);
        for (unsigned i = 0; i < n; ++i)
            mPrimitives[i] = {input.mPrimitiveBoxes[i], input.mPrimitiveCentroids[i], i};
    }

    bool run(kxGenericBVH& out, const bool* cancel, const std::vector<unsigned>& ids)
    {
        const unsigned n = static_cast<unsigned>(mPrimitives.size());
        mNodes.push_back(kxGNode::makeLeaf(rangeBox(0, n), 0, 0));
        std::vector<Task> stack{{0, 0, n}};
        while (!stack.empty()) {
            if (cancel && *cancel) {
                out.clear();
                return false;
            }
            const Task task = stack.back();
            stack.pop_back();
            kxBBox firstBox, secondBox;
            const unsigned middle = chooseSplit(task, firstBox, secondBox);
            if (middle == task.begin) {
                mNodes[task.node] = kxGNode::makeLeaf(mNodes[task.node].box, task.begin, task.end - task.begin);
                continue;
            }
            const unsigned first = static_cast<unsigned>(mNodes.size());
            mNodes.push_back(kxGNode::makeLeaf(firstBox, 0, 0));
            mNodes.push_back(kxGNode::makeLeaf(secondBox, 0, 0));
            mNodes[task.node] = kxGNode::makeInner(mNodes[task.node].box, first, first + 1);
            stack.push_back({first + 1, middle, task.end});
            stack.push_back({first, task.begin, middle});
        }
        std::vector<unsigned> primitives(n);
        for (unsigned slot = 0; slot < n; ++slot)
            primitives[slot] = ids[mPrimitives[slot].input];
        out.assign(std::move(mNodes), std::move(primitives));
        return true;
    }

private:
    kxBBox rangeBox(unsigned begin, unsigned end) const
    {
        kxBBox box;
        for (unsigned i = begin; i < end; ++i)
            box.selfUnion(mPrimitives[i].box);
        return box;
    }

    // Reorders the task's range and returns where its second child starts
    // (with both children's boxes), or task.begin when the range becomes a leaf.
    unsigned chooseSplit(const Task& task, kxBBox& firstBox, kxBBox& secondBox)
    {
        const unsigned count = task.end - task.begin;
        if (count <= 1)
            return task.begin;
        kxBBox centroidBox;
        for (unsigned i = task.begin; i < task.end; ++i)
            centroidBox.selfExpand(mPrimitives[i].centroid);
        Split best;
        for (int axis = 0; axis < 3; ++axis)
            tryAxis(task, centroidBox, axis, best);

        const float nodeArea = mNodes[task.node].box.getHalfArea();
        const bool splitPays = best.axis >= 0 && nodeArea > 0.0f &&
                               kTraversalCost + best.cost / nodeArea < float(count);
        if (count <= mMaxLeafSize && !splitPays)
            return task.begin;
        if (best.axis < 0) {
            const unsigned middle = medianSplit(task, centroidBox);
            firstBox = rangeBox(task.begin, middle);
            secondBox = rangeBox(middle, task.end);
            return middle;
        }
        const Binning binning = binningOf(centroidBox, best.axis, count);
        const int axis = best.axis;
        const int lastLeft = best.lastLeftBin;
        const auto firstRight = std::partition(mPrimitives.begin() + task.begin, mPrimitives.begin() + task.end,
                                               [&](const Primitive& p) { return binning(p.centroid[axis]) <= lastLeft; });
        firstBox = best.leftBox;
        secondBox = best.rightBox;
        return static_cast<unsigned>(firstRight - mPrimitives.begin());
    }

    static Binning binningOf(const kxBBox& centroidBox, int axis, unsigned count)
    {
        const int bins = static_cast<int>(std::clamp(count, unsigned(kMinBins), unsigned(kBins)));
        const float extent = centroidBox.max[axis] - centroidBox.min[axis];
        return {centroidBox.min[axis], float(bins) / extent, bins};
    }

    // Evaluates the split planes between the bins of one axis and keeps the cheapest in `best`.
    void tryAxis(const Task& task, const kxBBox& centroidBox, int axis, Split& best)
    {
        const float extent = centroidBox.max[axis] - centroidBox.min[axis];
        if (!(extent > 0.0f) || !(extent < std::numeric_limits<float>::infinity()))
            return;
        const Binning binning = binningOf(centroidBox, axis, task.end - task.begin);
        const int bins = binning.bins;
        std::fill(mBins.begin(), mBins.begin() + bins, Bin());
        for (unsigned i = task.begin; i < task.end; ++i) {
            Bin& bin = mBins[binning(mPrimitives[i].centroid[axis])];
            bin.box.selfUnion(mPrimitives[i].box);
            ++bin.count;
        }
        // Right-hand sides accumulated from the top bin down.
        kxBBox right;
        unsigned rightCount = 0;
        for (int b = bins - 1; b > 0; --b) {
            right.selfUnion(mBins[b].box);
            rightCount += mBins[b].count;
            mRightBox[b] = right;
            mRightCount[b] = rightCount;
        }
        kxBBox left;
        unsigned leftCount = 0;
        for (int b = 0; b < bins - 1; ++b) {
            left.selfUnion(mBins[b].box);
            leftCount += mBins[b].count;
            if (leftCount == 0 || mRightCount[b + 1] == 0)
                continue;
            const float cost =
                left.getHalfArea() * float(leftCount) + mRightBox[b + 1].getHalfArea() * float(mRightCount[b + 1]);
            if (cost < best.cost)
                best = {axis, b, cost, left, mRightBox[b + 1]};
        }
    }

    // Fallback when all centroids share one bin: split the range in half by
    // centroid order on the widest centroid axis (ties by input index).
    unsigned medianSplit(const Task& task, const kxBBox& centroidBox)
    {
        const Wm4::Vector3<float> e = centroidBox.getExtent();
        const int axis = (e[0] >= e[1] && e[0] >= e[2]) ? 0 : (e[1] >= e[2] ? 1 : 2);
        const unsigned middle = task.begin + (task.end - task.begin) / 2;
        std::nth_element(mPrimitives.begin() + task.begin, mPrimitives.begin() + middle,
                         mPrimitives.begin() + task.end, [&](const Primitive& a, const Primitive& b) {
                             const float ca = a.centroid[axis];
                             const float cb = b.centroid[axis];
                             return ca < cb || (!(cb < ca) && a.input < b.input);
                         });
        return middle;
    }

    const unsigned mMaxLeafSize;
    std::vector<Primitive> mPrimitives;
    std::vector<kxGNode> mNodes;
    std::array<Bin, kBins> mBins;
    std::array<kxBBox, kBins> mRightBox;
    std::array<unsigned, kBins> mRightCount{};
};

}  // namespace

void kxLinearGenericBVHBuilder::setNoPrimitives(unsigned noPrimitives)
{
    mNoPrimitives = noPrimitives;
    mPrimitiveBoxes.resize(noPrimitives);
    mPrimitiveIds.resize(noPrimitives);
    mPrimitiveCentroids.resize(noPrimitives);
}

bool kxLinearGenericBVHBuilder::build(kxGenericBVH& out, bool* cancel, unsigned maxLeafSize) const
{
    return Builder(*this, maxLeafSize).run(out, cancel, mPrimitiveIds);
}

}  // namespace kx
