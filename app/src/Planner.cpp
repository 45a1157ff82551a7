#include "velmora/Planner.h"

#include <thread>

#include "kxSystem.h"

namespace velmora {
namespace {

unsigned resolveThreads(unsigned requested)
{
    if (requested > 256)
        throw InputError("--threads must be at most 256");
    if (requested != 0)
        return requested;
    return std::max(1u, std::thread::hardware_concurrency());
}

}  // namespace

std::unique_ptr<Plan> planAssembly(const Assembly& assembly, const PlanOptions& options)
{
    if (!(options.angleTolerance > 0.0f && options.angleTolerance < 90.0f))
        throw InputError("the angle tolerance must lie strictly between 0 and 90 degrees");
    auto plan = std::unique_ptr<Plan>(new Plan);
    plan->mAssembly = assembly;
    plan->mThreads = resolveThreads(options.threads);
    plan->mAngleTolerance = options.angleTolerance;

    kx::kxTimer timer;
    auto stage = [&](const char* name) {
        plan->mTimings.push_back({name, timer.getElapsedMs()});
        timer.reset();
    };

    plan->mGroupMeshes = mergeGroups(plan->mAssembly);
    std::vector<kx::kxTriMesh*> meshes(plan->mGroupMeshes.begin(), plan->mGroupMeshes.end());
    plan->mGroups = std::make_unique<kxMeshGroups>(meshes, nullptr);
    stage("groups");

    plan->mDiagram = std::make_unique<kxContactDiagram>(*plan->mGroups, plan->mThreads, options.progress);
    plan->mDiagram->setVerbose(options.verbose);
    stage("contacts");
    plan->mDiagram->computeDirectionSet(options.angleTolerance);
    stage("directions");
    return plan;
}

}  // namespace velmora
