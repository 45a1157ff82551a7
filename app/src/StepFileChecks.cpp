#include "StepFileChecks.h"

#ifdef VELMORA_WITH_STEP

#include <Interface_Check.hxx>
#include <Interface_CheckIterator.hxx>
#include <Interface_InterfaceModel.hxx>
#include <StepBasic_ProductDefinition.hxx>
#include <StepRepr_NextAssemblyUsageOccurrence.hxx>
#include <StepRepr_Representation.hxx>
#include <StepRepr_RepresentationRelationship.hxx>
#include <XSControl_Reader.hxx>
#include <XSControl_WorkSession.hxx>
#include <vector>

namespace velmora {
namespace {

// Directed links between the entities of a model, each made by one entity
// (its "through"), and the search for a cycle among them.
class EntityLinks {
public:
    explicit EntityLinks(const Handle(Interface_InterfaceModel)& model)
        : mModel(model), mLinks(size_t(model->NbEntities()) + 1)
    {
    }

    void link(const Handle(Standard_Transient)& from, const Handle(Standard_Transient)& to, int through)
    {
        const int a = from.IsNull() ? 0 : mModel->Number(from), b = to.IsNull() ? 0 : mModel->Number(to);
        if (a > 0 && b > 0)
            mLinks[size_t(a)].push_back({b, through});
    }

    // The file's label ("#12") of an entity whose link closes a cycle, or ""
    // when there is none. Depth-first without recursion: chains may be long.
    std::string cycle() const
    {
        enum State : char { kNew, kOnPath, kDone };
        std::vector<State> state(mLinks.size(), kNew);
        std::vector<std::pair<int, size_t>> path;  // entity, next link to follow
        for (size_t start = 1; start < mLinks.size(); ++start) {
            if (state[start] != kNew)
                continue;
            path.assign(1, {int(start), 0});
            state[start] = kOnPath;
            while (!path.empty()) {
                auto& [from, next] = path.back();
                if (next == mLinks[size_t(from)].size()) {
                    state[size_t(from)] = kDone;
                    path.pop_back();
                    continue;
                }
                const Link& link = mLinks[size_t(from)][next++];
                if (state[size_t(link.to)] == kOnPath)
                    return mModel->StringLabel(mModel->Value(link.through))->ToCString();
                if (state[size_t(link.to)] == kNew) {
                    state[size_t(link.to)] = kOnPath;
                    path.push_back({link.to, 0});
                }
            }
        }
        return "";
    }

private:
    struct Link {
        int to;
        int through;
    };

    Handle(Interface_InterfaceModel) mModel;
    std::vector<std::vector<Link>> mLinks;  // by entity number
};

// The first fault the parser found ("#12: what").
std::string firstParseFault(const XSControl_Reader& reader, const Handle(Interface_InterfaceModel)& model)
{
    const Interface_CheckIterator checks = reader.WS()->ModelCheckList();
    for (checks.Start(); checks.More(); checks.Next()) {
        const Handle(Interface_Check)& check = checks.Value();
        if (check->NbFails() == 0)
            continue;
        const int n = checks.Number();
        const bool known = n > 0 && n <= model->NbEntities();
        return (known ? std::string(model->StringLabel(model->Value(n))->ToCString()) + ": " : std::string()) +
               check->CFail(1);
    }
    return "";
}

// An assembly's product definition to each one it uses, and a
// representation to each one placed in it.
EntityLinks assemblyLinks(const Handle(Interface_InterfaceModel)& model)
{
    EntityLinks links(model);
    for (int n = 1; n <= model->NbEntities(); ++n) {
        const Handle(Standard_Transient)& entity = model->Value(n);
        if (const auto usage = Handle(StepRepr_NextAssemblyUsageOccurrence)::DownCast(entity))
            links.link(usage->RelatingProductDefinition(), usage->RelatedProductDefinition(), n);
        else if (const auto placement = Handle(StepRepr_RepresentationRelationship)::DownCast(entity))
            links.link(placement->Rep2(), placement->Rep1(), n);
    }
    return links;
}

}  // namespace

std::string stepFileFault(const XSControl_Reader& reader)
{
    const Handle(Interface_InterfaceModel) model = reader.Model();
    const std::string fault = firstParseFault(reader, model);
    if (!fault.empty())
        return "not a valid STEP file (corrupt or truncated): " + fault;
    const std::string cycle = assemblyLinks(model).cycle();
    if (!cycle.empty())
        return "the assembly refers to itself (cyclic reference at " + cycle + ")";
    return "";
}

}  // namespace velmora

#endif
