// Taking one part out: the ordered removal steps that free a part's group,
// read from a planned hierarchy, and the lookup of a part by name.
//
// Every step but the last moves one or more groups out along one direction
// of the plan's direction set; the last step is the target group itself,
// which is then free. Steps are in the order they are carried out.
#pragma once

#include <string>
#include <vector>

#include "velmora/Planner.h"

namespace velmora {

struct RemovalStep {
    std::vector<unsigned> groups;   // ascending group ids
    unsigned directionId = 0;       // line of the direction set; unused in the last step
    int sense = 0;                  // +1 along the set's direction, -1 against it, 0 in the last step
    Wm4::Vector3<double> direction; // unit, in the assembly's frame; zero in the last step
};

struct RemovalProcedure {
    unsigned part = 0;   // the part asked for
    unsigned group = 0;  // its group, which the last step frees
    std::vector<RemovalStep> steps;
};

// The parts, ascending, that `name` names: a part's name (which wins over a
// node of the same name); else every part below a node named so (a node name
// like "motor", or a run of a node path like "machine/motor"); a shell-style
// pattern ('screw*', 'bolt#?', '[ab]*') takes every part whose name, node
// path or one of its node names matches. Throws InputError when nothing
// matches, suggesting names that contain `name` and the closest ones by edit
// distance.
std::vector<unsigned> findParts(const Assembly& assembly, const std::string& name);

// The one part `name` names, as findParts resolves it; several parts do only
// when they are all in one group (the first is returned), else InputError.
unsigned findPart(const Assembly& assembly, const std::string& name);

// The steps that take out the group of `part`. The plan must hold a
// hierarchy. With `rewriteHierarchy`, the plan's hierarchy is replaced by the
// procedure's own tree (one split per step, in order), so an exploded view of
// the plan then shows the procedure.
RemovalProcedure planRemoval(Plan& plan, unsigned part, bool rewriteHierarchy);

}  // namespace velmora
