// What the command-line tool and the Python binding make from a plan, with
// one set of defaults and one way of resolving names, so that both write the
// same views, reports and instructions for the same request.
//
// A view request names the part kept still (`fix`, empty: the default base)
// and the length unit of inputs that state none; the resolved options carry
// the base group, the unit and the up axis of the assembly itself.
#pragma once

#include <string>
#include <vector>

#include "velmora/Explode.h"
#include "velmora/RemovalInstructions.h"
#include "velmora/Report.h"

namespace velmora {

// The tools' explode defaults: the library's, timed by travel (0.8 diagonals per second).
ExplodeOptions defaultExplodeOptions();

struct ViewRequest {
    ExplodeOptions options = defaultExplodeOptions();
    std::string fix;           // the part kept still; empty: the largest
    std::string units = "mm";  // of inputs that do not state theirs
};

// `request.options` with the base, the unit and the up axis of `assembly`.
// Throws InputError when `fix` names no part.
ExplodeOptions resolveViewOptions(const Assembly& assembly, const ViewRequest& request);

// A removal with the instructions a person follows, holding `base` still.
struct RemovalPlan {
    RemovalProcedure procedure;
    unsigned base = 0;
    std::vector<RemovalInstruction> instructions;
};

// The group kept still while `part` is taken out: that of `fix`, else the
// default base. Throws InputError when `fix` names no part, or one that moves
// with `part`.
unsigned removalBaseGroup(const Assembly& assembly, unsigned part, const std::string& fix);

// Plans taking out `part` with `base` kept still; with `rewriteHierarchy`,
// the plan's hierarchy becomes the procedure's own (see planRemoval).
RemovalPlan planRemovalFor(Plan& plan, unsigned part, unsigned base, bool rewriteHierarchy);

// The instructions as a numbered list for people, one line each after a heading.
std::string removalInstructionsText(const Assembly& assembly, const RemovalPlan& removal);

// `report`'s "removal" completed with "base" (part names) and "instructions".
void addRemovalInstructions(Json& report, const Assembly& assembly, const RemovalPlan& removal);

// The options of the view that shows a removal's steps one after the other
// with its base kept still.
ExplodeOptions removalViewOptions(const Assembly& assembly, const ViewRequest& request, const RemovalPlan& removal);

// The view of a removal's steps and its explode report, read while the plan
// shows the procedure; the plan's hierarchy is then put back as it was, so
// later views of the plan show the plan again.
struct RemovalView {
    ExplodedView view;
    Json report;
};
RemovalView explodeRemoval(Plan& plan, const ViewRequest& request, const RemovalPlan& removal);

// Page titles: the inputs ("a.glb", "a.glb and 2 more"), then what is shown.
std::string inputsTitle(const std::vector<std::string>& inputs);
std::string explodedViewTitle(const std::string& subject);
std::string removalTitle(const std::string& subject, const Assembly& assembly, const RemovalPlan& removal);

}  // namespace velmora
