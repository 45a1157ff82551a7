#include "kxContactFaces.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>

#include "Wm4DistTriangle3Triangle3.h"

namespace {

// cos 135°: a pair is examined only when its normals are at least this opposed.
constexpr float kMinNormalDot = -0.70710677f;
// Leaf parameter of the tree over the parts' root boxes.
constexpr unsigned kPartsTreeLeafParameter = 10;
// Tolerance of ProcessParts relative to the largest side of any part's root box.
constexpr float kRelativeTolerance = 0.001f;

// Euclidean distance between two boxes; 0 when they overlap.
float boxDistance(const kx::kxBBox& p, const kx::kxBBox& q)
{
    float sum = 0.0f;
    for (int k = 0; k < 3; ++k) {
        const float gap = std::max({q.min[k] - p.max[k], p.min[k] - q.max[k], 0.0f});
        sum += gap * gap;
    }
    return std::sqrt(sum);
}

// Read access to one part: tree nodes, and triangle corners and normals by
// tree slot.
class PartView {
public:
    explicit PartView(const kxMeshAndBVH& part)
        : mBVH(*part.mBVH),
          mIndices(part.mMesh->GetIndexBuffer() ? part.mMesh->GetIndexBuffer()->GetData() : nullptr),
          mPositions(part.mMesh->GetVertexBuffer() ? part.mMesh->GetVertexBuffer()->GetPositions().data() : nullptr),
          mNormals(part.mTriangleNormals.data())
    {
    }

    const kx::kxGNode& node(unsigned index) const { return mBVH.getNode(index); }
    void corners(unsigned slot, Wm4::Vector3<float> out[3]) const
    {
        const unsigned* triangle = mIndices + 3 * size_t(mBVH.getPrimitive(slot));
        for (int k = 0; k < 3; ++k)
            out[k] = mPositions[triangle[k]];
    }
    const Wm4::Vector3<float>& normal(unsigned slot) const { return mNormals[mBVH.getPrimitive(slot)]; }

private:
    const kx::kxGenericBVH& mBVH;
    const unsigned* mIndices;
    const Wm4::Vector3<float>* mPositions;
    const Wm4::Vector3<float>* mNormals;
};

// The box of a triangle: its distance to another triangle's box is a lower
// bound of the triangles' distance, which spares exact distances that
// cannot lower anything.
kx::kxBBox triangleBox(const Wm4::Vector3<float> corners[3])
{
    kx::kxBBox box(corners[0], corners[0]);
    box.selfExpand(corners[1]);
    box.selfExpand(corners[2]);
    return box;
}

// The sum of a triangle's corners weighted by barycentric coordinates.
Wm4::Vector3<float> barycentricPoint(const Wm4::Vector3<float> corners[3], float w0, float w1, float w2)
{
    return corners[0] * w0 + corners[1] * w1 + corners[2] * w2;
}

// Candidate pairs of parts whose root boxes lie closer than `tolerance`, as
// keys (smaller index << 32 | larger index), ascending and unique.
std::vector<uint64_t> broadPhasePairs(const std::vector<kxMeshAndBVH>& parts, float tolerance)
{
    const unsigned n = static_cast<unsigned>(parts.size());
    kx::kxLinearGenericBVHBuilder builder;
    builder.setNoPrimitives(n);
    for (unsigned i = 0; i < n; ++i) {
        const kx::kxBBox& box = parts[i].mBVH->getNode(0).box;
        builder.mPrimitiveBoxes[i] = box;
        builder.mPrimitiveCentroids[i] = (box.min + box.max) * 0.5f;
        builder.mPrimitiveIds[i] = i;
        builder.mBBox.selfUnion(box);
    }
    kx::kxGenericBVH partsTree;
    builder.build(partsTree, nullptr, kPartsTreeLeafParameter);

    std::vector<uint64_t> keys;
    std::vector<unsigned> stack;
    for (unsigned i = 0; i < n; ++i) {
        const kx::kxBBox& rootI = builder.mPrimitiveBoxes[i];
        stack.assign(1, 0u);
        while (!stack.empty()) {
            const kx::kxGNode& node = partsTree.getNode(stack.back());
            stack.pop_back();
            if (!(boxDistance(node.box, rootI) < tolerance))
                continue;
            if (!node.isLeaf()) {
                stack.push_back(node.getSecondChild());
                stack.push_back(node.getFirstChild());
                continue;
            }
            for (unsigned slot = node.getFirstSlot(); slot < node.getFirstSlot() + node.getNoSlots(); ++slot) {
                const unsigned j = partsTree.getPrimitive(slot);
                if (j != i && boxDistance(builder.mPrimitiveBoxes[j], rootI) < tolerance)
                    keys.push_back(uint64_t(std::min(i, j)) << 32 | std::max(i, j));
            }
        }
    }
    std::sort(keys.begin(), keys.end());
    keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
    return keys;
}

unsigned keyFirst(uint64_t key) { return static_cast<unsigned>(key >> 32); }
unsigned keySecond(uint64_t key) { return static_cast<unsigned>(key & 0xFFFFFFFFu); }

}  // namespace

// ---- dual-tree search of touching faces ---------------------------------

class kxContactFaces::DualTreeSearch {
public:
    // `marks` holds at least one byte per slot of A's largest leaf.
    DualTreeSearch(kxContactFaces& faces, unsigned char* marks)
        : mFaces(faces), mA(*faces.mPartA), mB(*faces.mPartB), mMarks(marks)
    {
    }

    void visit(unsigned a, unsigned b)
    {
        const kx::kxGNode& nodeA = mA.node(a);
        const kx::kxGNode& nodeB = mB.node(b);
        if (nodeA.isLeaf() && nodeB.isLeaf()) {
            leafTest(a, b);
            return;
        }
        const bool splitA =
            nodeB.isLeaf() || (!nodeA.isLeaf() && nodeA.box.getMaxExtent() > nodeB.box.getMaxExtent());
        if (splitA)
            split(mA, mFaces.mNodeBoundA, a, nodeB.box, mFaces.mNodeBoundB[b], [&](unsigned c) { visit(c, b); });
        else
            split(mB, mFaces.mNodeBoundB, b, nodeA.box, mFaces.mNodeBoundA[a], [&](unsigned c) { visit(a, c); });
    }

private:
    // Visits the children of `parent` (a node of `side`) against the fixed
    // node of the other side, nearer child first (the second on a tie), each
    // only while its bound or the fixed node's bound exceeds its distance;
    // then refreshes the parent's bound from its children.
    template <class VisitChild>
    void split(const PartView& side, std::vector<float>& bounds, unsigned parent, const kx::kxBBox& fixedBox,
               const float& fixedBound, const VisitChild& visitChild)
    {
        const kx::kxGNode& node = side.node(parent);
        const unsigned c1 = node.getFirstChild();
        const unsigned c2 = node.getSecondChild();
        const float d1 = boxDistance(side.node(c1).box, fixedBox);
        const float d2 = boxDistance(side.node(c2).box, fixedBox);
        const bool firstIsNearer = d1 < d2;
        const unsigned order[2] = {firstIsNearer ? c1 : c2, firstIsNearer ? c2 : c1};
        const float distance[2] = {firstIsNearer ? d1 : d2, firstIsNearer ? d2 : d1};
        for (int k = 0; k < 2; ++k) {
            if (std::max(fixedBound, bounds[order[k]]) > distance[k])
                visitChild(order[k]);
        }
        bounds[parent] = std::max(bounds[c1], bounds[c2]);
    }

    void leafTest(unsigned a, unsigned b)
    {
        const kx::kxGNode& leafA = mA.node(a);
        const kx::kxGNode& leafB = mB.node(b);
        const float d = boxDistance(leafA.box, leafB.box);
        const unsigned firstA = leafA.getFirstSlot();
        const unsigned countA = leafA.getNoSlots();
        const unsigned firstB = leafB.getFirstSlot();
        const unsigned countB = leafB.getNoSlots();
        std::fill(mMarks, mMarks + countA, static_cast<unsigned char>(0));
        Wm4::Vector3<float> triA[3];
        Wm4::Vector3<float> triB[3];

        if (mFaces.mNodeBoundA[a] > d) {
            for (unsigned i = 0; i < countA; ++i) {
                const unsigned s = firstA + i;
                mA.corners(s, triA);
                if (!leafB.box.grow(mFaces.mTriDistA[s]).overlapsTriangle(triA[0], triA[1], triA[2]))
                    continue;
                mMarks[i] = 1;
                for (unsigned t = firstB; t < firstB + countB; ++t)
                    examinePair(s, triA, t, triB);
            }
            mFaces.mNodeBoundA[a] = largestDistance(mFaces.mTriDistA, firstA, countA);
        }
        if (mFaces.mNodeBoundB[b] > d) {
            for (unsigned t = firstB; t < firstB + countB; ++t) {
                mB.corners(t, triB);
                if (!leafA.box.grow(mFaces.mTriDistB[t]).overlapsTriangle(triB[0], triB[1], triB[2]))
                    continue;
                for (unsigned i = 0; i < countA; ++i) {
                    if (mMarks[i])
                        continue;
                    mA.corners(firstA + i, triA);
                    examinePair(firstA + i, triA, t, triB);
                }
            }
            mFaces.mNodeBoundB[b] = largestDistance(mFaces.mTriDistB, firstB, countB);
        }
    }

    // For an opposed pair (slot s of A, slot t of B), lowers both triangle
    // distances to the pair's distance. The exact distance is computed only
    // when the triangles' boxes lie closer than one of the two current
    // distances: otherwise neither can drop. `triA` holds s's corners; `triB`
    // receives t's.
    void examinePair(unsigned s, const Wm4::Vector3<float> triA[3], unsigned t, Wm4::Vector3<float> triB[3])
    {
        if (!(mA.normal(s).Dot(mB.normal(t)) <= mFaces.mMinNormalDot))
            return;
        mB.corners(t, triB);
        float& distA = mFaces.mTriDistA[s];
        float& distB = mFaces.mTriDistB[t];
        if (!(boxDistance(triangleBox(triA), triangleBox(triB)) < std::max(distA, distB)))
            return;
        const float delta = Wm4::DistTriangle3Triangle3<float>(triA, triB).Get();
        distA = std::min(distA, delta);
        distB = std::min(distB, delta);
    }

    static float largestDistance(const std::vector<float>& distances, unsigned first, unsigned count)
    {
        float largest = 0.0f;
        for (unsigned s = first; s < first + count; ++s)
            largest = std::max(largest, distances[s]);
        return largest;
    }

    kxContactFaces& mFaces;
    const PartView mA;
    const PartView mB;
    unsigned char* mMarks;
};

// ---- best-first minimum distance ----------------------------------------

class kxContactFaces::DistanceSearch {
public:
    DistanceSearch(const kxContactFaces& faces, Wm4::Vector3<float>* pointA, Wm4::Vector3<float>* pointB)
        : mA(*faces.mPartA), mB(*faces.mPartB), mTolerance(faces.mTolerance), mPointA(pointA), mPointB(pointB)
    {
    }

    float run()
    {
        const kx::kxBBox& rootA = mA.node(0).box;
        const kx::kxBBox& rootB = mB.node(0).box;
        mBound = rootA.bboxUnion(rootB).getDiagonalLength();
        // The open node pairs form a binary heap ordered by (distance, a, b),
        // the order of an ordered set, in per-thread memory reused between calls.
        thread_local std::vector<Entry> heap;
        mHeap = &heap;
        heap.clear();
        push({boxDistance(rootA, rootB), 0, 0});
        while (!heap.empty() && heap.front().distance < mBound) {
            std::pop_heap(heap.begin(), heap.end(), std::greater<Entry>());
            const Entry entry = heap.back();
            heap.pop_back();
            const kx::kxGNode& nodeA = mA.node(entry.a);
            const kx::kxGNode& nodeB = mB.node(entry.b);
            if (nodeA.isLeaf() && nodeB.isLeaf()) {
                if (leafTest(nodeA, nodeB))
                    break;
                continue;
            }
            const bool splitA =
                nodeB.isLeaf() || (!nodeA.isLeaf() && nodeA.box.getMaxExtent() > nodeB.box.getMaxExtent());
            if (splitA) {
                pushIfCloser(nodeA.getFirstChild(), entry.b);
                pushIfCloser(nodeA.getSecondChild(), entry.b);
            } else {
                pushIfCloser(entry.a, nodeB.getFirstChild());
                pushIfCloser(entry.a, nodeB.getSecondChild());
            }
        }
        return mBound;
    }

private:
    struct Entry {
        float distance;
        unsigned a;
        unsigned b;
        bool operator>(const Entry& o) const
        {
            if (distance != o.distance)
                return distance > o.distance;
            return a != o.a ? a > o.a : b > o.b;
        }
    };

    void push(const Entry& entry)
    {
        mHeap->push_back(entry);
        std::push_heap(mHeap->begin(), mHeap->end(), std::greater<Entry>());
    }

    void pushIfCloser(unsigned a, unsigned b)
    {
        const float distance = boxDistance(mA.node(a).box, mB.node(b).box);
        if (distance < mBound)
            push({distance, a, b});
    }

    // Lowers the bound with the triangle pairs of two leaves; true when the
    // bound has reached the tolerance and the search is over.
    bool leafTest(const kx::kxGNode& leafA, const kx::kxGNode& leafB)
    {
        Wm4::Vector3<float> triA[3];
        Wm4::Vector3<float> triB[3];
        for (unsigned s = leafA.getFirstSlot(); s < leafA.getFirstSlot() + leafA.getNoSlots(); ++s) {
            mA.corners(s, triA);
            if (!leafB.box.grow(mBound).overlapsTriangle(triA[0], triA[1], triA[2]))
                continue;
            const kx::kxBBox boxA = triangleBox(triA);
            for (unsigned t = leafB.getFirstSlot(); t < leafB.getFirstSlot() + leafB.getNoSlots(); ++t) {
                mB.corners(t, triB);
                if (!(boxDistance(boxA, triangleBox(triB)) < mBound))
                    continue;
                const Wm4::DistTriangle3Triangle3<float> query(triA, triB);
                const float delta = query.Get();
                if (!(delta < mBound))
                    continue;
                mBound = delta;
                if (mPointA) {
                    *mPointA = barycentricPoint(triA, query.GetTriangleBary0(0), query.GetTriangleBary0(1),
                                                query.GetTriangleBary0(2));
                    *mPointB = barycentricPoint(triB, query.GetTriangleBary1(0), query.GetTriangleBary1(1),
                                                query.GetTriangleBary1(2));
                }
                if (mBound <= mTolerance)
                    return true;
            }
        }
        return false;
    }

    const PartView mA;
    const PartView mB;
    const float mTolerance;
    Wm4::Vector3<float>* mPointA;
    Wm4::Vector3<float>* mPointB;
    float mBound = 0.0f;
    std::vector<Entry>* mHeap = nullptr;
};

// ---- kxContactFaces ------------------------------------------------------

kxContactFaces::kxContactFaces(const kxMeshAndBVH* partA, const kxMeshAndBVH* partB, float tolerance)
    : mPartA(partA), mPartB(partB), mTolerance(tolerance), mMinNormalDot(kMinNormalDot)
{
    if (partA) {
        mNodeBoundA.assign(partA->mBVH->getNoNodes(), tolerance);
        mTriDistA.assign(partA->mBVH->getNoPrimitives(), tolerance);
    }
    if (partB) {
        mNodeBoundB.assign(partB->mBVH->getNoNodes(), tolerance);
        mTriDistB.assign(partB->mBVH->getNoPrimitives(), tolerance);
    }
}

namespace {

// Triangle indices of the slots whose distance is below the tolerance, in slot order.
void listCloseTriangles(const std::vector<float>& distances, float tolerance, const kx::kxGenericBVH& bvh,
                        std::vector<unsigned>& faces)
{
    const auto count = std::count_if(distances.begin(), distances.end(), [&](float d) { return d < tolerance; });
    faces.resize(static_cast<size_t>(count));
    size_t next = 0;
    for (unsigned slot = 0; slot < distances.size(); ++slot) {
        if (distances[slot] < tolerance)
            faces[next++] = bvh.getPrimitive(slot);
    }
}

}  // namespace

void kxContactFaces::getContactFacesList(std::vector<unsigned>& facesA, std::vector<unsigned>& facesB)
{
    // One mark byte per slot of A's largest leaf, per thread, kept between calls.
    thread_local std::vector<unsigned char> marks;
    const unsigned largestLeaf = mPartA->mBVH->getMaxLeafSize();
    if (marks.size() < largestLeaf)
        marks.resize(largestLeaf);
    DualTreeSearch(*this, marks.data()).visit(0, 0);
    listCloseTriangles(mTriDistA, mTolerance, *mPartA->mBVH, facesA);
    listCloseTriangles(mTriDistB, mTolerance, *mPartB->mBVH, facesB);
}

float kxContactFaces::computeMinDistance() const
{
    return DistanceSearch(*this, nullptr, nullptr).run();
}

float kxContactFaces::computeMinDistance(Wm4::Vector3<float>& pointA, Wm4::Vector3<float>& pointB) const
{
    return DistanceSearch(*this, &pointA, &pointB).run();
}

void kxContactFaces::InitializeBVHList(const std::vector<kx::kxTriMesh*>& meshes, std::vector<kxMeshAndBVH>& parts)
{
    parts.clear();
    parts.resize(meshes.size());
    for (size_t i = 0; i < meshes.size(); ++i) {
        parts[i].mMesh = meshes[i];
        parts[i].updateBVH();
    }
}

float kxContactFaces::ProcessParts(const std::vector<kxMeshAndBVH>& parts, std::vector<tContactFacesData>& contacts)
{
    float largestSide = 0.0f;
    for (const kxMeshAndBVH& part : parts)
        largestSide = std::max(largestSide, part.mBVH->getNode(0).box.getMaxExtent());
    const float tolerance = kRelativeTolerance * largestSide;

    const std::vector<uint64_t> pairs = broadPhasePairs(parts, tolerance);
    contacts.resize(pairs.size());
    size_t stored = 0;
    for (const uint64_t key : pairs) {
        const unsigned a = keyFirst(key);
        const unsigned b = keySecond(key);
        tContactFacesData& slot = contacts[stored];
        kxContactFaces(&parts[a], &parts[b], tolerance).getContactFacesList(slot.facesA, slot.facesB);
        if (slot.facesA.empty())
            continue;
        slot.partA = a;
        slot.partB = b;
        ++stored;
    }
    contacts.resize(stored);
    return tolerance;
}

void kxContactFaces::DetectCollisions(const std::vector<kxMeshAndBVH>& parts, std::vector<tCollisionData>& collisions,
                                      float tolerance)
{
    const std::vector<uint64_t> pairs = broadPhasePairs(parts, tolerance);
    collisions.resize(pairs.size());
    size_t stored = 0;
    for (const uint64_t key : pairs) {
        const unsigned a = keyFirst(key);
        const unsigned b = keySecond(key);
        if (tolerance >= kxContactFaces(&parts[a], &parts[b], tolerance).computeMinDistance())
            collisions[stored++] = {a, b};
    }
    collisions.resize(stored);
}
