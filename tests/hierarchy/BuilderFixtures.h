// Fixtures of the hierarchy builder and distant-contact tests: an assembly's
// contact diagram, a hierarchy planned on it and the sweep test of every
// split.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "StdoutCapture.h"
#include "SweepTest.h"
#include "kxContactDiagram.h"
#include "kxDisassemblyHierarchy.h"
#include "kxDisassemblyHierarchyBuilder.h"
#include "kxMeshGroups.h"
#include "velmora/Planner.h"

namespace hierarchy_test {

// The world-space group meshes of an assembly, their groups and their contact
// diagram with its direction set.
struct DiagramFixture {
    std::vector<kx::kxPointer<kx::kxTriMesh>> meshes;
    std::unique_ptr<kxMeshGroups> groups;
    std::unique_ptr<kxContactDiagram> diagram;

    std::vector<const kx::kxTriMesh*> meshPointers() const;
};

std::unique_ptr<DiagramFixture> diagramOf(const velmora::Assembly& assembly, unsigned threads = 2,
                                          float angleTolerance = 5.0f);
// Groups over the given meshes (one group per mesh) and an empty diagram that
// the test fills with pushContactEdge.
std::unique_ptr<DiagramFixture> emptyDiagramOf(std::vector<kx::kxPointer<kx::kxTriMesh>> meshes);

struct HierarchyFixture {
    std::unique_ptr<kxDisassemblyHierarchy> hierarchy;
    std::unique_ptr<kxDisassemblyHierarchyBuilder> builder;
};

// Builder on `threads` workers, optionally with distant contacts, solvers
// initialised, whole tree computed.
HierarchyFixture planHierarchy(const DiagramFixture& fixture, unsigned threads, bool distantContacts);

using velmora::groupsOfNode;

// Sweep test of one split: the second child moves along +D[splitId] away
// from the first child.
struct SplitSweep {
    unsigned node;
    velmora_test::SweepResult result;
};
std::vector<SplitSweep> sweepEverySplit(const DiagramFixture& fixture, const kxDisassemblyHierarchyBuilder& builder);

using velmora_test::StdoutCapture;

}  // namespace hierarchy_test
