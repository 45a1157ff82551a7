#include "BuilderFixtures.h"

#include "TestMeshes.h"
#include "kxDistantContacts.h"

namespace hierarchy_test {

std::vector<const kx::kxTriMesh*> DiagramFixture::meshPointers() const
{
    std::vector<const kx::kxTriMesh*> pointers;
    for (const kx::kxPointer<kx::kxTriMesh>& mesh : meshes)
        pointers.push_back(mesh.get());
    return pointers;
}

std::unique_ptr<DiagramFixture> diagramOf(const velmora::Assembly& assembly, unsigned threads, float angleTolerance)
{
    auto fixture = std::make_unique<DiagramFixture>();
    fixture->meshes = velmora::mergeGroups(assembly);
    fixture->groups = std::make_unique<kxMeshGroups>(velmora_test::rawPointers(fixture->meshes), nullptr);
    fixture->diagram = std::make_unique<kxContactDiagram>(*fixture->groups, threads, nullptr);
    fixture->diagram->computeDirectionSet(angleTolerance);
    return fixture;
}

std::unique_ptr<DiagramFixture> emptyDiagramOf(std::vector<kx::kxPointer<kx::kxTriMesh>> meshes)
{
    auto fixture = std::make_unique<DiagramFixture>();
    fixture->meshes = std::move(meshes);
    fixture->groups = std::make_unique<kxMeshGroups>(velmora_test::rawPointers(fixture->meshes), nullptr);
    fixture->diagram = std::make_unique<kxContactDiagram>(0u, 16u, *fixture->groups);
    return fixture;
}

HierarchyFixture planHierarchy(const DiagramFixture& fixture, unsigned threads, bool distantContacts)
{
    HierarchyFixture plan;
    plan.hierarchy = std::make_unique<kxDisassemblyHierarchy>(*fixture.groups);
    plan.builder = std::make_unique<kxDisassemblyHierarchyBuilder>(*plan.hierarchy, *fixture.diagram, threads);
    if (distantContacts)
        kxDistantContacts(*plan.builder).computeDistantContacts(threads, nullptr);
    plan.builder->initSolver();
    plan.builder->computeGroupsHierarchy(0, nullptr);
    return plan;
}

std::vector<SplitSweep> sweepEverySplit(const DiagramFixture& fixture, const kxDisassemblyHierarchyBuilder& builder)
{
    const kxDisassemblyHierarchy& hierarchy = builder.getHierarchy();
    const std::vector<const kx::kxTriMesh*> meshes = fixture.meshPointers();
    std::vector<SplitSweep> sweeps;
    for (unsigned node = 0; node < hierarchy.getNoNodes(); ++node) {
        const kxDisassemblyHierarchy::tTreeNode& n = hierarchy.getNode(node);
        if (n.noGroups == kxDisassemblyHierarchy::kNoNode || n.firstChild == kxDisassemblyHierarchy::kNoNode)
            continue;
        const Wm4::Vector3<double>& d = fixture.diagram->getDirectionFromId(n.splitId);
        const Wm4::Vector3<float> direction{float(d[0]), float(d[1]), float(d[2])};
        sweeps.push_back({node, velmora_test::sweepSeparates(meshes, groupsOfNode(hierarchy, n.secondChild),
                                                             groupsOfNode(hierarchy, n.firstChild), direction)});
    }
    return sweeps;
}

}  // namespace hierarchy_test
