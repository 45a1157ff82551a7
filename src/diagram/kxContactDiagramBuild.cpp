// The full construction of the contact diagram: working copies, contact
// faces, one contact job per touching mesh pair on the worker pool.
#include <algorithm>

#include "kxContactDiagram.h"
#include "kxContactFaces.h"
#include "kxContactPoints.h"
#include "kxMeshLib.h"
#include "kxMiniThreadPool.h"
#include "kxMotionDetect.h"

namespace {

// 47 degrees: vertex normals are averaged only across edges flatter than this.
constexpr double kSmoothingAngle = 0.820304811000824;
// Subdivision level of the direction samples (906,015 directions).
constexpr unsigned kDirectionLevel = 300;
// A circle-based centroid replaces the mean contact point above this quality.
constexpr float kCircleQuality = 0.7f;
// Below this quality along one sense of a line, the fit along the other sense
// (a mirror image, equal up to rounding) cannot pass kCircleQuality.
constexpr float kMirrorFitQuality = kCircleQuality - 0.05f;

struct ContactJobResult {
    std::vector<Wm4::Vector3<double>> directions;
    Wm4::Vector3<float> point;
    unsigned meshId0 = 0;
    unsigned meshId1 = 0;
};

// Copies of every mesh in world coordinates, moved so that the assembly's
// bounding-box centre is the origin; `centre` receives that centre.
std::vector<kx::kxPointer<kx::kxTriMesh>> makeWorkingCopies(const std::vector<kx::kxTriMesh*>& meshes,
                                                           Wm4::Vector3<double>& centre)
{
    Wm4::Vector3<float> lo(Wm4::Math<float>::MAX_REAL, Wm4::Math<float>::MAX_REAL, Wm4::Math<float>::MAX_REAL);
    Wm4::Vector3<float> hi = -lo;
    for (const kx::kxTriMesh* mesh : meshes) {
        const kx::kxVertexBuffer& vb = *mesh->GetVertexBuffer();
        for (int v = 0; v < vb.GetVertexQuantity(); ++v) {
            const Wm4::Vector3<float> p = mesh->World.ApplyForward(vb.Position3(v));
            for (int i = 0; i < 3; ++i) {
                lo[i] = std::min(lo[i], p[i]);
                hi[i] = std::max(hi[i], p[i]);
            }
        }
    }
    centre = lo[0] <= hi[0] ? (Wm4::Vector3<double>(lo) + Wm4::Vector3<double>(hi)) * 0.5 : Wm4::Vector3<double>();
    const Wm4::Vector3<float> shift(centre);

    std::vector<kx::kxPointer<kx::kxTriMesh>> copies;
    copies.reserve(meshes.size());
    kx::kxAttributes attr;
    attr.SetPositionChannels(3);
    attr.SetNormalChannels(3);
    for (const kx::kxTriMesh* mesh : meshes) {
        const kx::kxVertexBuffer& src = *mesh->GetVertexBuffer();
        kx::kxPointer<kx::kxVertexBuffer> vb = new kx::kxVertexBuffer(attr, src.GetVertexQuantity());
        for (int v = 0; v < src.GetVertexQuantity(); ++v)
            vb->Position3(v) = mesh->World.ApplyForward(src.Position3(v)) - shift;
        const int indexCount = 3 * mesh->GetTriangleQuantity();
        kx::kxPointer<kx::kxIndexBuffer> ib = new kx::kxIndexBuffer(indexCount, 1);
        std::copy(mesh->GetIndexBuffer()->GetData(), mesh->GetIndexBuffer()->GetData() + indexCount, ib->GetData());
        kx::kxPointer<kx::kxTriMesh> copy = new kx::kxTriMesh(vb, ib);
        copy->SetName(mesh->GetName());
        kx::kxMeshProcessing::WeldSimilarVertices(copy, 0.0f, true);
        kx::kxMeshProcessing::SmoothenNormals(copy, kSmoothingAngle);
        copies.push_back(copy);
    }
    return copies;
}

Wm4::Vector3<float> meanPosition(const std::vector<kx::kxVertexBuffer*>& buffers)
{
    Wm4::Vector3<float> sum;
    int count = 0;
    for (const kx::kxVertexBuffer* buffer : buffers) {
        for (int v = 0; v < buffer->GetVertexQuantity(); ++v)
            sum += buffer->Position3(v);
        count += buffer->GetVertexQuantity();
    }
    return sum * (1.0f / float(count));
}

}  // namespace

struct kxContactDiagramJobs {
    const std::vector<kxMeshAndBVH>* parts;
    const std::vector<kxContactFaces::tContactFacesData>* contacts;
    std::vector<kxMotionDetect>* detectors;  // one per thread
    std::vector<ContactJobResult>* results;  // one per job
    double transform[3][4];                  // working frame -> caller's frame
    float tolerance;                         // ray length of contact-point extraction
};

void kxContactDiagramFunctor::operator()(unsigned jobIndex, unsigned threadIndex, void* jobsData) const
{
    const kxContactDiagramJobs& jobs = *static_cast<const kxContactDiagramJobs*>(jobsData);
    const kxContactFaces::tContactFacesData& contact = (*jobs.contacts)[jobIndex];
    ContactJobResult& result = (*jobs.results)[jobIndex];
    result.meshId0 = contact.partA;
    result.meshId1 = contact.partB;

    kx::kxPointer<kx::kxVertexBuffer> pointsA, pointsB;
    kxContactPoints((*jobs.parts)[contact.partA], (*jobs.parts)[contact.partB], jobs.tolerance)
        .getContactPoints(contact.facesA, contact.facesB, pointsA, pointsB);
    std::vector<kx::kxVertexBuffer*> buffers;
    for (kx::kxVertexBuffer* buffer : {pointsA.get(), pointsB.get()}) {
        if (buffer != nullptr && buffer->GetVertexQuantity() > 0)
            buffers.push_back(buffer);
    }
    if (buffers.empty())
        return;

    kxMotionDetect& detector = (*jobs.detectors)[threadIndex];
    detector.clearSystems();
    for (kx::kxVertexBuffer* buffer : buffers)
        detector.pushContactPoints(buffer);
    detector.centerSystems();
    Wm4::Vector3<double> found[3];
    bool bothSenses[3] = {false, false, false};
    const unsigned count = detector.computeRemovalDirection(found, bothSenses);
    for (unsigned k = 0; k < count; ++k) {
        result.directions.push_back(found[k]);
        if (bothSenses[k])
            result.directions.push_back(-found[k]);
    }

    Wm4::Vector3<float> point = meanPosition(buffers);
    float bestQuality = 0.0f;
    Wm4::Vector3<float> bestCentroid;
    const auto fitAlong = [&](const Wm4::Vector3<double>& direction) {
        float quality = 0.0f;
        const Wm4::Vector3<float> centroid =
            kxMotionDetect::ComputeCircleBasedCentroid(Wm4::Vector3<float>(direction), buffers, quality);
        if (quality > bestQuality) {
            bestQuality = quality;
            bestCentroid = centroid;
        }
        return quality;
    };
    for (unsigned k = 0; k < count; ++k) {
        // Seen along the opposite sense the points are the exact mirror image,
        // so its fit differs only by rounding: it can matter only when this
        // one comes near the quality that lets a circle centre win.
        if (fitAlong(found[k]) > kMirrorFitQuality && bothSenses[k])
            fitAlong(-found[k]);
    }
    if (bestQuality > kCircleQuality)
        point = bestCentroid;

    for (int row = 0; row < 3; ++row) {
        const double* t = jobs.transform[row];
        result.point[row] = float(t[0] * point[0] + t[1] * point[1] + t[2] * point[2] + t[3]);
    }
}

kxContactDiagram::kxContactDiagram(const kxMeshGroups& groups, unsigned nThreads,
                                   kx::kxProgressNotifierInterface* progress)
    : mMeshGroups(groups), mVerbose(false), mAngleTolerance(0.0f)
{
    Wm4::Vector3<double> centre;
    const std::vector<kx::kxPointer<kx::kxTriMesh>> copies = makeWorkingCopies(groups.mMeshes, centre);
    std::vector<kx::kxTriMesh*> raw(copies.begin(), copies.end());

    std::vector<kxMeshAndBVH> parts;
    kxContactFaces::InitializeBVHList(raw, parts);
    std::vector<kxContactFaces::tContactFacesData> contacts;
    const float tolerance = kxContactFaces::ProcessParts(parts, contacts);

    std::vector<kxMotionDetect> detectors(nThreads);
    if (!detectors.empty()) {
        detectors[0].generateDirectionSamples(kDirectionLevel);
        for (size_t t = 1; t < detectors.size(); ++t)
            detectors[t].copyDirectionSamples(detectors[0]);
    }

    std::vector<ContactJobResult> results(contacts.size());
    kxContactDiagramJobs jobs{&parts, &contacts, &detectors, &results, {}, tolerance};
    for (int row = 0; row < 3; ++row) {
        jobs.transform[row][row] = 1.0;
        jobs.transform[row][3] = centre[row];
    }
    kxMiniThreadPool<kxContactDiagramFunctor> pool(kxContactDiagramFunctor(), nThreads, progress);
    pool.setJobsData(static_cast<unsigned>(contacts.size()), &jobs);
    pool.start();

    mEdgeDirections.reserve(results.size());
    mEdgeDirectionIds.reserve(results.size());
    mEdges.reserve(results.size());
    mContactPoints.reserve(results.size());
    for (const ContactJobResult& result : results) {
        pushContactEdge(result.meshId0, result.meshId1, result.directions.empty() ? nullptr : result.directions.data(),
                        static_cast<unsigned>(result.directions.size()), result.point);
    }
}
