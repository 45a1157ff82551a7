// kxMeshGroups: the partition of an assembly's meshes into rigid groups, the
// unit every later stage plans with. Mesh ids are indices into the mesh list;
// group ids are the numbers given per mesh (by default the mesh id). The mesh
// pointers are borrowed and must outlive this object and everything built from
// it. Immutable after construction; no accessor checks its arguments.
//
// The group lists come from a counting sort whose scatter loop runs over the
// group count, not the mesh count. With one mesh per group (the default, or any
// grouping with as many groups as meshes) the lists are a correct partition;
// when several meshes share a group, meshes with ids at or above the group
// count are not placed. Callers that need shared groups merge each group's
// meshes into one mesh first.
#pragma once

#include <vector>

#include "kxSceneGraph.h"

class kxMeshGroups {
public:
    // Returned by getMeshIdFromTriMesh for a mesh that is not in the list.
    static constexpr unsigned NO_MESH_ID = 0x0FFFFFFFu;

    // `groupIds` may be null (every mesh its own group); otherwise it must hold
    // at least one entry per mesh. At least one mesh is required.
    kxMeshGroups(const std::vector<kx::kxTriMesh*>& meshes, const std::vector<unsigned>* groupIds);
    kxMeshGroups(const kxMeshGroups& other);
    ~kxMeshGroups();

    unsigned getNoGroups() const;
    unsigned getGroupSize(unsigned groupId) const;
    unsigned getMeshIdFromGroup(unsigned groupId, unsigned index) const;
    const kx::kxTriMesh* getMeshFromGroup(unsigned groupId, unsigned index) const;
    kx::kxTriMesh* editMeshFromGroup(unsigned groupId, unsigned index) const;
    unsigned getGroupIdFromMeshId(unsigned meshId) const;
    // Index of the last entry equal to `mesh`, or NO_MESH_ID.
    unsigned getMeshIdFromTriMesh(const kx::kxTriMesh* mesh) const;

    std::vector<kx::kxTriMesh*> mMeshes;   // the caller's meshes; index = mesh id
    std::vector<unsigned> mGroupStart;     // group g owns [mGroupStart[g], mGroupStart[g+1]) of mGroupMeshIds
    std::vector<unsigned> mGroupMeshIds;   // mesh ids ordered by group
    std::vector<unsigned> mMeshGroupId;    // group id of each mesh

private:
    void computeMeshGroups();
};
