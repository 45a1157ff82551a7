// The procedure on the demo assemblies, end to end from their meshes: for
// every part, each step's groups really come out along the step's direction
// while the groups of the later steps are still in place (swept against
// them), and merging never adds steps.
#include "ProcedureTestSupport.h"
#include "SweepTest.h"
#include "TestMeshes.h"
#include "velmora/Assembly.h"
#include "velmora/DemoAssemblies.h"

#include <string>

using namespace procedure_test;

namespace
{
// The library pipeline in host order, owning everything it borrows.
struct DemoPipeline
{
    explicit DemoPipeline(const std::string& name)
        : meshes(velmora::mergeGroups(velmora::makeDemoAssembly(name))),
          groups(velmora_test::rawPointers(meshes), nullptr), diagram(groups, 2, nullptr), hierarchy(groups)
    {
        diagram.computeDirectionSet(5.0f);
        builder = std::make_unique<kxDisassemblyHierarchyBuilder>(hierarchy, diagram, 2);
        builder->initSolver();
        testing::internal::CaptureStdout();  // the builder's timing lines
        builder->computeGroupsHierarchy(0, nullptr);
        testing::internal::GetCapturedStdout();
    }

    Wm4::Vector3<float> directionOf(unsigned signedDirection) const
    {
        const Wm4::Vector3<double>& d = diagram.getDirectionFromId(signedDirection >> 1);
        const float sign = (signedDirection & 1u) ? -1.0f : 1.0f;
        return Wm4::Vector3<float>(sign * float(d[0]), sign * float(d[1]), sign * float(d[2]));
    }

    std::vector<kx::kxPointer<kx::kxTriMesh>> meshes;
    kxMeshGroups groups;
    kxContactDiagram diagram;
    kxDisassemblyHierarchy hierarchy;
    std::unique_ptr<kxDisassemblyHierarchyBuilder> builder;
};

unsigned depthOf(const kxDisassemblyHierarchy& h, unsigned node)
{
    unsigned depth = 0;
    for (; node != 0; node = h.getNode(node).parent)
        ++depth;
    return depth;
}

// Sweeps every step of the procedure of `group` against the later steps.
void expectStepsComeOut(const DemoPipeline& d, unsigned group, unsigned& noMerged)
{
    const unsigned leaf = d.hierarchy.getLeafNodeIndexFromGroupId(group);
    kxSinglePartDisassemblyProcedure p(*d.builder);
    testing::internal::CaptureStdout();
    p.buildProcedure(leaf);
    testing::internal::GetCapturedStdout();

    const auto& steps = p.getSteps();
    const unsigned noNaive = depthOf(d.hierarchy, leaf) + 1;
    EXPECT_LE(steps.size(), noNaive) << "group " << group;
    noMerged += noNaive - unsigned(steps.size());
    ASSERT_FALSE(steps.empty());
    EXPECT_EQ(steps.back().signedDirection, kNone);
    EXPECT_EQ(stepGroups(p, d.hierarchy, unsigned(steps.size()) - 1), (std::vector<unsigned>{group}));

    std::vector<const kx::kxTriMesh*> meshes;
    for (const auto& m : d.meshes)
        meshes.push_back(m.get());
    for (unsigned s = 0; s + 1 < steps.size(); ++s)
    {
        std::vector<unsigned> fixed;
        for (unsigned later = s + 1; later < steps.size(); ++later)
        {
            const std::vector<unsigned> groups = stepGroups(p, d.hierarchy, later);
            fixed.insert(fixed.end(), groups.begin(), groups.end());
        }
        const velmora_test::SweepResult sweep = velmora_test::sweepSeparates(
            meshes, stepGroups(p, d.hierarchy, s), fixed, d.directionOf(steps[s].signedDirection));
        EXPECT_TRUE(sweep.separates) << "group " << group << " step " << s << ": " << sweep.noCrossings
                                     << " crossings, deepest " << sweep.deepestCrossing;
    }
}
}  // namespace

TEST(SinglePartProcedureDemos, EveryStepComesOutAlongItsDirection)
{
    unsigned noMerged = 0;
    for (const std::string& name : velmora::demoAssemblyNames())
    {
        SCOPED_TRACE(name);
        const DemoPipeline d(name);
        for (unsigned g = 0; g < d.groups.getNoGroups(); ++g)
            expectStepsComeOut(d, g, noMerged);
    }
    // The stack's plates come out together with what rests on them.
    EXPECT_GT(noMerged, 0u);
}
