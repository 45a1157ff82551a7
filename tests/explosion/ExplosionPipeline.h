// The library pipeline up to a finished disassembly hierarchy, as a host runs
// it: merged group meshes, mesh groups, contact diagram with its direction
// set, hierarchy and builder. Shared by the explosion and glTF export tests.
#pragma once

#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "kxContactDiagram.h"
#include "kxDisassemblyHierarchy.h"
#include "kxDisassemblyHierarchyBuilder.h"
#include "kxMeshGroups.h"
#include "velmora/Assembly.h"
#include "velmora/DemoAssemblies.h"

namespace explosion_test {

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

// An assembly with its planned hierarchy; group g's mesh is meshes[g], in
// world coordinates.
struct PlannedAssembly {
    velmora::Assembly assembly;
    std::vector<kx::kxPointer<kx::kxTriMesh>> meshes;
    std::unique_ptr<kxMeshGroups> groups;
    std::unique_ptr<kxContactDiagram> diagram;
    std::unique_ptr<kxDisassemblyHierarchy> hierarchy;
    std::unique_ptr<kxDisassemblyHierarchyBuilder> builder;
};

inline std::unique_ptr<PlannedAssembly> planAssembly(velmora::Assembly assembly, unsigned threads = 2)
{
    StdoutCapture quiet;  // the builder's timing lines
    auto plan = std::make_unique<PlannedAssembly>();
    plan->assembly = std::move(assembly);
    plan->meshes = velmora::mergeGroups(plan->assembly);
    std::vector<kx::kxTriMesh*> raw;
    for (const kx::kxPointer<kx::kxTriMesh>& mesh : plan->meshes)
        raw.push_back(mesh.get());
    plan->groups = std::make_unique<kxMeshGroups>(raw, nullptr);
    plan->diagram = std::make_unique<kxContactDiagram>(*plan->groups, threads, nullptr);
    plan->diagram->computeDirectionSet(5.0f);
    plan->hierarchy = std::make_unique<kxDisassemblyHierarchy>(*plan->groups);
    plan->builder = std::make_unique<kxDisassemblyHierarchyBuilder>(*plan->hierarchy, *plan->diagram, threads);
    plan->builder->initSolver();
    plan->builder->computeGroupsHierarchy(0, nullptr);
    return plan;
}

// The names sharedPlan knows: the demo assemblies this checkout can make
// ("pins" needs the shipped sample file) and "wall-12", a 12-brick wall.
inline std::vector<std::string> sharedPlanNames()
{
    std::vector<std::string> names;
    for (const std::string& name : velmora::demoAssemblyNames()) {
        try {
            velmora::makeDemoAssembly(name);
            names.push_back(name);
        } catch (const velmora::InputError&) {
        }
    }
    names.push_back("wall-12");
    return names;
}

// Planning is the slow part of these tests: each assembly is planned once
// per test program. Callers may attach controllers to the meshes but must
// not change their geometry or the hierarchy.
inline const PlannedAssembly& sharedPlan(const std::string& name)
{
    static std::map<std::string, std::unique_ptr<PlannedAssembly>> plans;
    std::unique_ptr<PlannedAssembly>& plan = plans[name];
    if (!plan)
        plan = planAssembly(name == "wall-12" ? velmora::makeBrickWall(12) : velmora::makeDemoAssembly(name));
    return *plan;
}

// The groups of a node's range, in ordered position.
inline std::vector<unsigned> groupsOfNode(const kxDisassemblyHierarchy& hierarchy, unsigned node)
{
    const kxDisassemblyHierarchy::tTreeNode& range = hierarchy.getNode(node);
    std::vector<unsigned> groups;
    for (unsigned k = range.start; k < range.start + range.noGroups; ++k)
        groups.push_back(hierarchy.getGroupIdFromOrderedIndex(k));
    return groups;
}

inline bool isSplit(const kxDisassemblyHierarchy& hierarchy, unsigned node)
{
    return hierarchy.getNode(node).firstChild != kxDisassemblyHierarchy::kNoNode;
}

}  // namespace explosion_test
