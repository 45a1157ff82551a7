// The library pipeline up to a finished disassembly hierarchy, as the host
// runs it (the planner facade without distant contacts). Shared by the
// explosion and glTF export tests.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "StdoutCapture.h"
#include "velmora/DemoAssemblies.h"
#include "velmora/Planner.h"

namespace explosion_test {

using velmora_test::StdoutCapture;
using velmora::groupsOfNode;
using PlannedAssembly = velmora::Plan;

// The host pipeline up to the hierarchy, without distant contacts.
inline std::unique_ptr<PlannedAssembly> planHierarchy(const velmora::Assembly& assembly, unsigned threads = 2)
{
    StdoutCapture quiet;  // the builder's timing lines
    velmora::PlanOptions options;
    options.threads = threads;
    options.hierarchy = true;
    options.distantContacts = false;
    return velmora::planAssembly(assembly, options);
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
        plan = planHierarchy(name == "wall-12" ? velmora::makeBrickWall(12) : velmora::makeDemoAssembly(name));
    return *plan;
}

inline bool isSplit(const kxDisassemblyHierarchy& hierarchy, unsigned node)
{
    return hierarchy.getNode(node).firstChild != kxDisassemblyHierarchy::kNoNode;
}

}  // namespace explosion_test
