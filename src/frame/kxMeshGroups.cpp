#include "kxMeshGroups.h"

#include <algorithm>

kxMeshGroups::kxMeshGroups(const std::vector<kx::kxTriMesh*>& meshes, const std::vector<unsigned>* groupIds)
    : mMeshes(meshes), mGroupMeshIds(meshes.size(), 0u), mMeshGroupId(meshes.size(), 0u)
{
    for (size_t i = 0; i < mMeshGroupId.size(); ++i)
        mMeshGroupId[i] = groupIds ? (*groupIds)[i] : static_cast<unsigned>(i);
    computeMeshGroups();
}

kxMeshGroups::kxMeshGroups(const kxMeshGroups& other) = default;

kxMeshGroups::~kxMeshGroups() = default;

unsigned kxMeshGroups::getNoGroups() const { return static_cast<unsigned>(mGroupStart.size() - 1); }

unsigned kxMeshGroups::getGroupSize(unsigned groupId) const
{
    return mGroupStart[groupId + 1] - mGroupStart[groupId];
}

unsigned kxMeshGroups::getMeshIdFromGroup(unsigned groupId, unsigned index) const
{
    return mGroupMeshIds[mGroupStart[groupId] + index];
}

const kx::kxTriMesh* kxMeshGroups::getMeshFromGroup(unsigned groupId, unsigned index) const
{
    return editMeshFromGroup(groupId, index);
}

kx::kxTriMesh* kxMeshGroups::editMeshFromGroup(unsigned groupId, unsigned index) const
{
    return mMeshes[getMeshIdFromGroup(groupId, index)];
}

unsigned kxMeshGroups::getGroupIdFromMeshId(unsigned meshId) const { return mMeshGroupId[meshId]; }

unsigned kxMeshGroups::getMeshIdFromTriMesh(const kx::kxTriMesh* mesh) const
{
    unsigned found = NO_MESH_ID;
    for (size_t i = 0; i < mMeshes.size(); ++i) {
        if (mMeshes[i] == mesh)
            found = static_cast<unsigned>(i);
    }
    return found;
}

// Counting sort of mesh ids by group id. The scatter walks k from G-1 down to
// 0 (G = group count), which places every mesh when G equals the mesh count.
// An index k with no mesh (possible when group ids leave gaps, G > n) is
// skipped rather than read past the mesh list.
void kxMeshGroups::computeMeshGroups()
{
    const size_t n = mMeshGroupId.size();
    unsigned groupCount = 1;
    if (n != 0) {
        const unsigned maxId = *std::max_element(mMeshGroupId.begin(), mMeshGroupId.end());
        groupCount = maxId + 1;
        if (groupCount == 0) {
            // A group id of 0xFFFFFFFF: the group count wraps to 0 and the
            // arrays would need 2^32 + 1 entries; no groups are formed.
            mGroupStart.assign(1, 0u);
            return;
        }
        mGroupStart.assign(static_cast<size_t>(maxId) + 2, 0u);
        for (unsigned g : mMeshGroupId)
            mGroupStart[g] += 1;
    } else {
        mGroupStart.assign(2, 0u);
    }
    for (unsigned g = 0; g < groupCount; ++g)
        mGroupStart[g + 1] += mGroupStart[g];
    for (unsigned k = groupCount; k-- > 0;) {
        if (k >= n)
            continue;
        const unsigned g = mMeshGroupId[k];
        mGroupStart[g] -= 1;
        mGroupMeshIds[mGroupStart[g]] = k;
    }
}
