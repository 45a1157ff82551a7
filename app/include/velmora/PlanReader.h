// Reading a saved `plan` report back, so that an exploded view can be made
// again from it without planning: what it says about the parts and groups
// (to check it against the inputs), the planner's settings that shape the
// tree, the size of its direction set and the hierarchy's nodes.
//
// Reading never trusts the text: malformed JSON, a missing key, a value of
// the wrong type or out of range is an InputError with a one-line message;
// the tree's own consistency is checked when it is rebuilt over the inputs.
#pragma once

#include <string>
#include <vector>

#include "kxContactDiagram.h"
#include "velmora/Assembly.h"
#include "velmora/HierarchyReplay.h"

namespace velmora {

struct SavedPlan {
    struct SavedPart {
        std::string name;
        unsigned group = 0;
        unsigned triangles = 0;
    };
    std::vector<SavedPart> parts;
    std::vector<std::vector<unsigned>> groups;           // the parts of each group
    float angleTolerance = 5.0f;                         // degrees
    bool distantContacts = true;
    std::vector<std::vector<std::string>> keepTogether;  // group names per set
    unsigned noDirections = 0;
    std::vector<Wm4::Vector3<double>> directions;        // the direction set, in order
    std::vector<SavedHierarchyNode> hierarchy;
};

// The plan report in `text`. Throws InputError on anything that is not one.
SavedPlan parsePlanReport(const std::string& text);

// The plan report in the file at `path` (InputError when it cannot be read).
SavedPlan readPlanReport(const std::string& path);

// Throws InputError naming the first difference when `plan` was not made
// from `assembly`: the number of parts, a part's name, group or triangle
// count, or the grouping.
void checkPlanFits(const SavedPlan& plan, const Assembly& assembly);

// Throws InputError when `diagram`'s direction set is not the one the plan's
// splits refer to (other directions, or in another order).
void checkDirectionsFit(const SavedPlan& plan, const kxContactDiagram& diagram);

// The keep-together sets of `plan` as group ids of `assembly` (InputError
// for a group name it does not have).
std::vector<std::vector<unsigned>> keepTogetherGroupIds(const SavedPlan& plan, const Assembly& assembly);

}  // namespace velmora
