// Fixtures of the hierarchy builder and distant-contact tests: an assembly's
// contact diagram, a hierarchy planned on it, the sweep test of every split,
// and a capture of the library's standard-output lines.
#pragma once

#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "SweepTest.h"
#include "kxContactDiagram.h"
#include "kxDisassemblyHierarchy.h"
#include "kxDisassemblyHierarchyBuilder.h"
#include "kxMeshGroups.h"
#include "velmora/Assembly.h"

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

// The groups of a node's range, in ordering order.
std::vector<unsigned> groupsOfNode(const kxDisassemblyHierarchy& hierarchy, unsigned node);

// Sweep test of one split: the second child moves along +D[splitId] away
// from the first child.
struct SplitSweep {
    unsigned node;
    velmora_test::SweepResult result;
};
std::vector<SplitSweep> sweepEverySplit(const DiagramFixture& fixture, const kxDisassemblyHierarchyBuilder& builder);

// Everything written to std::cout while it lives.
class StdoutCapture {
public:
    StdoutCapture() : mPrevious(std::cout.rdbuf(mBuffer.rdbuf())) {}
    ~StdoutCapture() { std::cout.rdbuf(mPrevious); }
    StdoutCapture(const StdoutCapture&) = delete;
    StdoutCapture& operator=(const StdoutCapture&) = delete;
    std::string text() const { return mBuffer.str(); }

private:
    std::ostringstream mBuffer;
    std::streambuf* mPrevious;
};

}  // namespace hierarchy_test
