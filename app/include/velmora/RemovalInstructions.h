// Removal steps as instructions for a person holding the assembly by its
// base: every step names what physically moves and where to.
//
// The library's steps say which groups separate from the rest along which
// direction; when those groups hold the base (which stays put), what moves
// is the rest, along the opposite direction. Every instruction has a
// direction, the last one included (the part asked for leaves along the
// direction its side last moved), no instruction moves the base, and
// consecutive instructions that move their own groups along the same
// direction are merged into one.
#pragma once

#include <string>
#include <vector>

#include "velmora/Removal.h"

namespace velmora {

struct RemovalInstruction {
    std::vector<unsigned> groups;   // what moves, ascending group ids; never the base
    Wm4::Vector3<double> direction; // unit, in the assembly's frame (zero only when nothing can move)
    bool target = false;            // the moving groups hold the part asked for
};

// The default base of a removal: the group of the largest part outside the
// target's group (the target's group when it is the only one).
unsigned removalBase(const Assembly& assembly, unsigned targetGroup);

// The instructions that carry out `removal` with group `base` kept still.
std::vector<RemovalInstruction> removalInstructions(const Plan& plan, const RemovalProcedure& removal,
                                                    unsigned base);

// The names of the parts of `groups`, comma-separated, with parts that differ
// only by an instance suffix ("#2", "-3") counted: "dowel ×4, plate".
std::string describeParts(const Assembly& assembly, const std::vector<unsigned>& groups);

// "+Z" for a direction along an axis, else its components to three decimals.
std::string describeDirection(const Wm4::Vector3<double>& direction);

}  // namespace velmora
