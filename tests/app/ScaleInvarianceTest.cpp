#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>

#include "TestMeshes.h"
#include "velmora/DemoAssemblies.h"
#include "velmora/Explode.h"
#include "velmora/Import.h"
#include "velmora/Planner.h"
#include "velmora/PlanningScale.h"

namespace {

using Vec3f = Wm4::Vector3<float>;
using Vec3d = Wm4::Vector3<double>;

velmora::PlanOptions hierarchyOptions(bool normaliseScale = true)
{
    velmora::PlanOptions options;
    options.threads = 2;
    options.hierarchy = true;
    options.normaliseScale = normaliseScale;
    return options;
}

// The assembly with every world coordinate multiplied by `factor`.
velmora::Assembly scaledCopy(const velmora::Assembly& assembly, double factor)
{
    velmora::Assembly scaled = assembly;
    for (velmora::Part& part : scaled.parts) {
        const kx::kxVertexBuffer& vertices = *part.mesh->GetVertexBuffer();
        std::vector<Vec3f> positions;
        for (int v = 0; v < vertices.GetVertexQuantity(); ++v) {
            const Vec3f p = part.mesh->World.ApplyForward(vertices.Position3(v));
            positions.emplace_back(float(p[0] * factor), float(p[1] * factor), float(p[2] * factor));
        }
        const unsigned* indices = part.mesh->GetIndexBuffer()->GetData();
        part.mesh = velmora_test::makeMesh(
            positions, std::vector<unsigned>(indices, indices + 3 * part.mesh->GetTriangleQuantity()));
        part.mesh->SetName(part.name);
    }
    return scaled;
}

template <class Real>
void expectNear(const Wm4::Vector3<Real>& expected, const Wm4::Vector3<Real>& actual, double tolerance)
{
    EXPECT_LE((Vec3d(expected[0], expected[1], expected[2]) - Vec3d(actual[0], actual[1], actual[2])).Length(),
              tolerance)
        << "expected " << expected[0] << " " << expected[1] << " " << expected[2] << ", got " << actual[0] << " "
        << actual[1] << " " << actual[2];
}

double sizeOf(const velmora::Assembly& assembly)
{
    Vec3f lo, hi;
    velmora::assemblyBounds(assembly, lo, hi);
    return (hi - lo).Length();
}

// How far a scaled plan's lengths may be from the original's, as shares of
// the assembly's size. A factor that is not a power of two rounds the input
// differently; contact points, being means of the contact samples that
// survive trimming, move by up to about a thousandth of the size with it.
struct Tolerances {
    double points;
    double lengths;
};
constexpr Tolerances kRoundedInput{1e-3, 1e-5};
constexpr Tolerances kExact{0.0, 0.0};

// Same contacts, directions, hierarchy and explosion; every length scaled by
// `factor`.
void expectSamePlanScaled(const velmora::Plan& plan, const velmora::Plan& scaled, double factor,
                          Tolerances tolerances = kRoundedInput)
{
    const double size = sizeOf(plan.assembly()) * factor;
    const double lengthTolerance = tolerances.lengths * size;
    const kxContactDiagram& a = plan.diagram();
    const kxContactDiagram& b = scaled.diagram();
    ASSERT_EQ(a.getNoContacts(), b.getNoContacts());
    for (unsigned e = 0; e < a.getNoContacts(); ++e) {
        SCOPED_TRACE(testing::Message() << "contact " << e);
        EXPECT_EQ(a.getEdgeData(e).groupId0, b.getEdgeData(e).groupId0);
        EXPECT_EQ(a.getEdgeData(e).groupId1, b.getEdgeData(e).groupId1);
        EXPECT_EQ(plan.zeroAreaContact(e), scaled.zeroAreaContact(e));
        EXPECT_EQ(a.getDisassemblyDirectionIds(e), b.getDisassemblyDirectionIds(e));
        expectNear(plan.contactPoint(e) * float(factor), scaled.contactPoint(e), tolerances.points * size);
    }
    ASSERT_EQ(a.getNoDirections(), b.getNoDirections());
    for (unsigned k = 0; k < a.getNoDirections(); ++k)
        expectNear(a.getDirectionFromId(k), b.getDirectionFromId(k), 1e-6);

    const kxDisassemblyHierarchy& h = plan.hierarchy();
    ASSERT_EQ(h.getNoNodes(), scaled.hierarchy().getNoNodes());
    for (unsigned id = 0; id < h.getNoNodes(); ++id) {
        const kxDisassemblyHierarchy::tTreeNode& n = h.getNode(id);
        const kxDisassemblyHierarchy::tTreeNode& m = scaled.hierarchy().getNode(id);
        EXPECT_EQ(n.noGroups, m.noGroups) << "node " << id;
        if (n.noGroups == kxDisassemblyHierarchy::kNoNode)
            continue;
        EXPECT_EQ(velmora::groupsOfNode(h, id), velmora::groupsOfNode(scaled.hierarchy(), id)) << "node " << id;
        EXPECT_EQ(n.firstChild, m.firstChild) << "node " << id;
        EXPECT_EQ(n.splitId, m.splitId) << "node " << id;
    }

    velmora::ExplodeOptions pose;
    pose.staticPose = true;
    const velmora::ExplodedView view = velmora::explodeAssembly(plan, pose);
    const velmora::ExplodedView scaledView = velmora::explodeAssembly(scaled, pose);
    EXPECT_NEAR(view.splitDistance * factor, scaledView.splitDistance, lengthTolerance);
    ASSERT_EQ(view.offsets.size(), scaledView.offsets.size());
    for (size_t g = 0; g < view.offsets.size(); ++g)
        expectNear(view.offsets[g] * float(factor), scaledView.offsets[g], lengthTolerance);
}

// Both ends of the range in an optimised build; under sanitizers, where a plan
// takes ten times longer, the small end only (the one that locked before).
#if defined(__SANITIZE_ADDRESS__)
const std::vector<double> kFactors = {1e-3};
#else
const std::vector<double> kFactors = {1e-3, 1e3};
#endif

void expectScaleInvariant(const velmora::Assembly& assembly)
{
    const auto plan = velmora::planAssembly(assembly, hierarchyOptions());
    for (const double factor : kFactors) {
        SCOPED_TRACE(testing::Message() << "scaled by " << factor);
        expectSamePlanScaled(*plan, *velmora::planAssembly(scaledCopy(assembly, factor), hierarchyOptions()), factor);
    }
}

TEST(ScaleInvariance, DemoAssembliesPlanTheSameAtEveryScale)
{
    for (const std::string& name : velmora::demoAssemblyNames()) {
        SCOPED_TRACE(name);
        expectScaleInvariant(velmora::makeDemoAssembly(name));
    }
}

TEST(ScaleInvariance, CorpusAssemblyPlansTheSameAtEveryScale)
{
    const std::string corpus = velmora_test::corpusDir();
    if (corpus.empty())
        GTEST_SKIP() << "the shared corpus is not beside this checkout";
    const velmora::Assembly beams = velmora::importAssembly({corpus + "/beam_assembly"});
    const auto plan = velmora::planAssembly(beams, hierarchyOptions());
    for (const double factor : kFactors)
        expectSamePlanScaled(*plan, *velmora::planAssembly(scaledCopy(beams, factor), hierarchyOptions()), factor);
    // A power of two is exact: the planning frame is then the very same.
    const double exact = 1.0 / 1024.0;
    expectSamePlanScaled(*plan, *velmora::planAssembly(scaledCopy(beams, exact), hierarchyOptions()), exact, kExact);
}

// The planning factor is the power of two that brings the largest side of the
// bounds into [1024, 2048).
TEST(ScaleInvariance, PlanningScaleIsThePowerOfTwoToTheCanonicalSize)
{
    struct Case {
        float side;
        double factor;
    };
    const std::vector<Case> cases = {
        {1.0f, 1024.0}, {0.5f, 2048.0}, {3.0f, 512.0},      {1024.0f, 1.0},
        {1500.0f, 1.0}, {2048.0f, 0.5}, {1e-3f, 1048576.0}, {1e38f, std::ldexp(1.0, -116)}};
    for (const Case& c : cases) {
        velmora::Assembly assembly;
        assembly.parts.push_back({"box", "(test)", "",
                                  velmora_test::makeBox({0, 0, 0}, {c.side, 1e-3f * c.side, 0.5f * c.side}),
                                  std::nullopt});
        velmora::assignGroups(assembly, velmora::GroupBy::Mesh);
        const double factor = velmora::planningScale(assembly, velmora::mergeGroups(assembly));
        EXPECT_EQ(factor, c.factor) << c.side;
        EXPECT_GE(double(c.side) * factor, velmora::kPlanningExtent);
        EXPECT_LT(double(c.side) * factor, 2 * velmora::kPlanningExtent);
    }
}

// Coordinates the planner cannot use are input errors, with or without the
// normalisation (a NaN would otherwise silently give no contact).
TEST(ScaleInvariance, UnrepresentableCoordinatesAreInputErrors)
{
    struct Case {
        const char* name;
        std::vector<Vec3f> corners;  // one triangle
        bool normalise;
        const char* message;
    };
    const float nan = std::nanf("");
    const std::vector<Case> cases = {
        {"nan", {{0, 0, 0}, {1, 0, 0}, {0, nan, 0}}, true, "'part' has a coordinate that is not a finite number"},
        {"nan unscaled", {{0, 0, 0}, {1, 0, 0}, {0, nan, 0}}, false,
         "'part' has a coordinate that is not a finite number"},
        {"infinity", {{0, 0, 0}, {INFINITY, 0, 0}, {0, 1, 0}}, true,
         "'part' has a coordinate that is not a finite number"},
        {"one point", {{2, 2, 2}, {2, 2, 2}, {2, 2, 2}}, true,
         "the assembly has no size: all its vertices lie in one point"},
        {"denormal size", {{0, 0, 0}, {1e-35f, 0, 0}, {0, 1e-35f, 0}}, true,
         "the assembly is too small to plan: it spans 1e-35 units, below what float coordinates resolve"},
        {"far from its size", {{1e30f, 0, 0}, {1e30f, 1, 0}, {1e30f, 0, 1}}, true,
         "the assembly lies too far from the origin for its size (1 units wide at 1e+30)"},
    };
    for (const Case& c : cases) {
        velmora::Assembly assembly;
        assembly.parts.push_back({"part", "(test)", "", velmora_test::makeMesh(c.corners, {0, 1, 2}), std::nullopt});
        velmora::assignGroups(assembly, velmora::GroupBy::Mesh);
        velmora::PlanOptions options;
        options.threads = 1;
        options.normaliseScale = c.normalise;
        try {
            velmora::planAssembly(assembly, options);
            ADD_FAILURE() << c.name << ": no error";
        } catch (const velmora::InputError& error) {
            EXPECT_STREQ(error.what(), c.message) << c.name;
        }
    }
}

// Two touching cubes a ten-thousandth of a unit wide: their face normals fall
// under the library's absolute area floor, so planned as they are the contact
// has no direction and the pair stays locked; normalised, they come apart
// exactly as unit cubes do.
TEST(ScaleInvariance, TinyPartsLockOnlyWithoutNormalisation)
{
    velmora::Assembly assembly;
    for (int i = 0; i < 2; ++i) {
        const float lo = 1e-4f * float(i);
        assembly.parts.push_back({std::string(i == 0 ? "left" : "right"), "(test)", "",
                                  velmora_test::makeBox({lo, 0, 0}, {lo + 1e-4f, 1e-4f, 1e-4f}), std::nullopt});
    }
    velmora::assignGroups(assembly, velmora::GroupBy::Mesh);

    const auto asGiven = velmora::planAssembly(assembly, hierarchyOptions(false));
    EXPECT_EQ(asGiven->planningScale(), 1.0);
    ASSERT_EQ(asGiven->diagram().getNoContacts(), 1u);
    EXPECT_TRUE(asGiven->diagram().getDisassemblyDirections(0).empty());
    EXPECT_FALSE(asGiven->zeroAreaContact(0));  // the faces do overlap: not a zero-area contact
    EXPECT_EQ(asGiven->hierarchy().getNode(0).firstChild, kxDisassemblyHierarchy::kNoNode);

    const auto normalised = velmora::planAssembly(assembly, hierarchyOptions(true));
    EXPECT_EQ(normalised->planningScale(), std::ldexp(1.0, 23));
    ASSERT_EQ(normalised->diagram().getNoContacts(), 1u);
    EXPECT_NE(normalised->hierarchy().getNode(0).firstChild, kxDisassemblyHierarchy::kNoNode);
    expectSamePlanScaled(*velmora::planAssembly(scaledCopy(assembly, 1e4), hierarchyOptions()), *normalised, 1e-4);
}

}  // namespace
