// Fuzzes the reader of saved plan reports (`explode --plan`): any text is a
// plan or an InputError, never a crash. A report that fits the lid-on-box
// sample (the assembly of one of the seeds) is also replayed over it: the
// contacts, blocking constraints and verdicts it holds are rebuilt into a
// plan and exploded, which must end in a view or an InputError.
#include <cstdint>
#include <string>

#include "velmora/Assembly.h"
#include "velmora/DemoAssemblies.h"
#include "velmora/Explode.h"
#include "velmora/PlanReader.h"
#include "velmora/Planner.h"

namespace {

void replay(const velmora::SavedPlan& saved)
{
    static const velmora::Assembly assembly = velmora::makeDemoAssembly("lid-on-box");
    velmora::checkPlanFits(saved, assembly);
    velmora::PlanOptions options;
    options.threads = 1;
    options.hierarchy = true;
    options.verify = true;
    options.angleTolerance = saved.angleTolerance;
    options.distantContacts = saved.distantContacts;
    options.keepTogether = velmora::keepTogetherGroupIds(saved, assembly);
    options.normaliseScale = saved.normaliseScale.value_or(true);
    options.savedPlan = &saved;
    if (!saved.holdsConstraints())
        return;  // computing the contacts again is the ordinary planner's business
    const auto plan = velmora::planAssembly(assembly, options);
    velmora::explodeAssembly(*plan, {});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    try {
        replay(velmora::parsePlanReport(std::string(reinterpret_cast<const char*>(data), size)));
    } catch (const velmora::InputError&) {
    }
    return 0;
}
