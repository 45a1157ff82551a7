// Reading a saved `plan` report back, so that an exploded view can be made
// again from it without planning: what it says about the parts and groups
// (to check it against the inputs), the planner's settings that shape the
// tree, the size of its direction set and the hierarchy's nodes; from
// reports that hold them, also the contacts, the blocking constraints and
// the verification's outcome, so that the view is made without computing
// contacts again (see SavedPlanReplay.h).
//
// Reading never trusts the text: malformed JSON, a missing key, a value of
// the wrong type or out of range is an InputError with a one-line message;
// the tree's own consistency is checked when it is rebuilt over the inputs.
#pragma once

#include <optional>
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

    // A contact of the diagram, in the report's order (the diagram's edge order).
    struct SavedContact {
        unsigned group0 = 0;
        unsigned group1 = 0;
        Wm4::Vector3<float> point{0.0f, 0.0f, 0.0f};  // world lengths; zero when the report says null
        std::vector<Wm4::Vector3<double>> directions;
        bool zeroArea = false;
    };
    // A blocking constraint between groups that do not touch (found, or
    // learnt by the verification), in the order the planner pushed them.
    struct SavedDistantConstraint {
        unsigned groupA = 0;
        unsigned groupB = 0;
        std::vector<unsigned> directionIds;  // k | (sense << 31)
        std::vector<unsigned> penalties;     // one per id
    };
    struct SavedVerification {
        unsigned repaired = 0;
        unsigned learntConstraints = 0;
        unsigned rounds = 0;
        std::vector<unsigned> unverifiedSplits;  // node ids whose split is not verified
        // Group pairs: contacts a sweep freed, pairs kept together (absent
        // from older reports: empty).
        std::vector<std::pair<unsigned, unsigned>> freedBySweep;
        std::vector<std::pair<unsigned, unsigned>> keptTogether;
    };
    std::vector<SavedContact> contacts;
    // Absent in reports written before the constraints were saved: such a
    // report's contacts are computed again.
    std::optional<std::vector<SavedDistantConstraint>> distant;
    std::optional<bool> normaliseScale;        // absent in older reports
    std::optional<bool> freeZeroAreaContacts;  // absent in older reports
    std::optional<SavedVerification> verification;  // absent when the plan was not verified

    // Whether the report holds all that is needed to skip the contact and
    // distant-contact stages.
    bool holdsConstraints() const { return distant.has_value() && normaliseScale && freeZeroAreaContacts; }
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
