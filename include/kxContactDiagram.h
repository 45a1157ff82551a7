// kxContactDiagram: the graph of physical contacts between the groups of an
// assembly. Each edge is one contact between two meshes of different groups,
// with the removal directions motion analysis found for it and one contact
// point in the caller's (world) frame. computeDirectionSet merges the
// directions of all edges into one set of unique lines under an angular
// tolerance; an edge direction then has id 2k + s (k its line in the set,
// s = 1 when it points against the stored representative).
//
// Invariants: the five per-edge vectors have one entry per edge, in push
// order; the two groups of an edge always differ; edge directions are never
// altered after the push (ids and the set are rebuilt from them).
//
// The full constructor works on copies of the meshes moved so that the
// assembly's bounding-box centre is the origin (same scale and orientation
// as the world frame), which keeps float coordinates small; contact points
// are moved back by the inverse translation, so every point the diagram
// reports is in world coordinates. The contact tolerance that contact-face
// detection returns is the ray length of contact-point extraction.
#pragma once

#include <vector>

#include "Wm4.h"
#include "kxMeshGroups.h"
#include "kxProgressNotifierInterface.h"

struct kxContactDiagramJobs;

// Job functor of the construction's worker pool: one contact per job. It
// keeps no state; everything comes through the jobs data (a
// kxContactDiagramJobs).
struct kxContactDiagramFunctor {
    void operator()(unsigned jobIndex, unsigned threadIndex, void* jobsData) const;
};

class kxContactDiagram {
public:
    struct tContactEdge {
        unsigned meshId0;
        unsigned meshId1;
        unsigned groupId0;
        unsigned groupId1;
    };

    // Finds the contacts of all meshes of `groups` on `nThreads` workers.
    kxContactDiagram(const kxMeshGroups& groups, unsigned nThreads, kx::kxProgressNotifierInterface* progress);
    // An empty diagram with room for `capacity` edges pushed by the caller
    // (the first argument is unused).
    kxContactDiagram(unsigned unused, unsigned capacity, const kxMeshGroups& groups);
    kxContactDiagram(const kxContactDiagram& other);
    ~kxContactDiagram();

    // Appends a contact unless both meshes are in the same group.
    // `directions` may be null when `count` is 0.
    void pushContactEdge(unsigned meshId0, unsigned meshId1, const Wm4::Vector3<double>* directions, unsigned count,
                         const Wm4::Vector3<float>& point);
    // Rebuilds the unique direction set and every edge's direction ids.
    void computeDirectionSet(float angleTolerance);

    void setVerbose(bool verbose) { mVerbose = verbose; }
    bool getVerbose() const { return mVerbose; }

    unsigned getNoContacts() const { return static_cast<unsigned>(mEdges.size()); }
    const tContactEdge& getEdgeData(unsigned e) const { return mEdges[e]; }
    const std::vector<Wm4::Vector3<double>>& getDisassemblyDirections(unsigned e) const { return mEdgeDirections[e]; }
    const std::vector<unsigned>& getDisassemblyDirectionIds(unsigned e) const { return mEdgeDirectionIds[e]; }
    const Wm4::Vector3<float>& getContactPoint(unsigned e) const { return mContactPoints[e]; }
    unsigned getNoDirections() const { return static_cast<unsigned>(mDirections.size()); }
    // Entry i of the set: for an edge id, pass id / 2 and negate for odd ids.
    const Wm4::Vector3<double>& getDirectionFromId(unsigned i) const { return mDirections[i]; }
    float getAngleTolerance() const { return mAngleTolerance; }
    const kxMeshGroups& getMeshGroups() const { return mMeshGroups; }

private:
    const kxMeshGroups& mMeshGroups;
    bool mVerbose;
    float mAngleTolerance;
    std::vector<std::vector<Wm4::Vector3<double>>> mEdgeDirections;
    std::vector<std::vector<unsigned>> mEdgeDirectionIds;
    std::vector<tContactEdge> mEdges;
    std::vector<Wm4::Vector3<float>> mContactPoints;
    std::vector<Wm4::Vector3<double>> mDirections;
};
