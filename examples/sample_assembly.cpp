// Builds a small generated assembly (a base plate, a lid resting on it and two
// pegs standing on the lid), partitions it into groups and measures, on the
// library's worker pool, the gap between every pair of parts. Parts whose gap
// is within the contact tolerance are reported as touching.
//
// usage: sample_assembly [threads]
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "VelmoraVersion.h"
#include "Wm4.h"
#include "kxMeshGroups.h"
#include "kxMiniThreadPool.h"

namespace {

kx::kxPointer<kx::kxTriMesh> makeBox(const std::string& name, Wm4::Vector3<float> lo, Wm4::Vector3<float> hi)
{
    kx::kxAttributes attr;
    attr.SetPositionChannels(3);
    attr.SetNormalChannels(3);
    kx::kxPointer<kx::kxVertexBuffer> vb = new kx::kxVertexBuffer(attr, 8);
    for (int c = 0; c < 8; ++c)
        vb->Position3(c) = Wm4::Vector3<float>((c & 1) ? hi[0] : lo[0], (c & 2) ? hi[1] : lo[1], (c & 4) ? hi[2] : lo[2]);
    static const unsigned faces[36] = {0, 2, 3, 0, 3, 1, 4, 5, 7, 4, 7, 6, 0, 1, 5, 0, 5, 4,
                                       2, 6, 7, 2, 7, 3, 0, 4, 6, 0, 6, 2, 1, 3, 7, 1, 7, 5};
    kx::kxPointer<kx::kxIndexBuffer> ib = new kx::kxIndexBuffer(36, 1);
    for (int k = 0; k < 36; ++k)
        ib->GetData()[k] = faces[k];
    kx::kxPointer<kx::kxTriMesh> mesh = new kx::kxTriMesh(vb, ib);
    mesh->SetName(name);
    return mesh;
}

struct PairJobs {
    const kxMeshGroups* groups;
    std::vector<std::pair<unsigned, unsigned>> pairs;
    std::vector<float> gaps;
};

// The smallest triangle-to-triangle distance between the two meshes of a pair.
struct GapFunctor {
    void operator()(unsigned job, unsigned, void* data) const
    {
        auto* jobs = static_cast<PairJobs*>(data);
        const kx::kxTriMesh* a = jobs->groups->mMeshes[jobs->pairs[job].first];
        const kx::kxTriMesh* b = jobs->groups->mMeshes[jobs->pairs[job].second];
        float best = Wm4::Math<float>::MAX_REAL;
        for (int s = 0; s < a->GetTriangleQuantity(); ++s) {
            for (int t = 0; t < b->GetTriangleQuantity(); ++t) {
                Wm4::Vector3<float> ta[3], tb[3];
                triangle(*a, s, ta);
                triangle(*b, t, tb);
                Wm4::DistTriangle3Triangle3<float> dist(ta, tb);
                best = std::min(best, dist.Get());
            }
        }
        jobs->gaps[job] = best;
    }
    static void triangle(const kx::kxTriMesh& mesh, int t, Wm4::Vector3<float> out[3])
    {
        int i[3];
        mesh.GetTriangle(t, i[0], i[1], i[2]);
        for (int k = 0; k < 3; ++k)
            out[k] = mesh.World.ApplyForward(mesh.GetVertexBuffer()->Position3(i[k]));
    }
};

}  // namespace

int main(int argc, char** argv)
{
    const unsigned threads = argc > 1 ? static_cast<unsigned>(std::strtoul(argv[1], nullptr, 10)) : 2u;
    std::vector<kx::kxPointer<kx::kxTriMesh>> parts = {
        makeBox("base", {0, 0, 0}, {4, 4, 1}),
        makeBox("lid", {0, 0, 1}, {4, 4, 1.5f}),
        makeBox("peg-a", {0.5f, 0.5f, 1.5f}, {1, 1, 3}),
        makeBox("peg-b", {3, 3, 1.5f}, {3.5f, 3.5f, 3}),
    };
    std::vector<kx::kxTriMesh*> raw;
    for (auto& p : parts)
        raw.push_back(p);
    kxMeshGroups groups(raw, nullptr);

    PairJobs jobs{&groups, {}, {}};
    for (unsigned a = 0; a < groups.getNoGroups(); ++a)
        for (unsigned b = a + 1; b < groups.getNoGroups(); ++b)
            jobs.pairs.emplace_back(groups.getMeshIdFromGroup(a, 0), groups.getMeshIdFromGroup(b, 0));
    jobs.gaps.resize(jobs.pairs.size());

    kx::kxTimer timer;
    kxMiniThreadPool<GapFunctor> pool(GapFunctor(), threads, nullptr);
    pool.setJobsData(static_cast<unsigned>(jobs.pairs.size()), &jobs);
    pool.start();

    std::printf("velmora %s: %u parts in %u groups, %zu pairs on %u threads (%.2f ms)\n",
                Velmora::Version::GetDescStringMajorMinorReleaseRevisionDate(), unsigned(parts.size()),
                groups.getNoGroups(), jobs.pairs.size(), threads, timer.getElapsedMs());
    const float tolerance = 1e-4f;
    for (size_t j = 0; j < jobs.pairs.size(); ++j) {
        std::printf("  %-6s - %-6s gap %.4f%s\n", parts[jobs.pairs[j].first]->GetName().c_str(),
                    parts[jobs.pairs[j].second]->GetName().c_str(), jobs.gaps[j],
                    jobs.gaps[j] <= tolerance ? "  touching" : "");
    }
    return 0;
}
