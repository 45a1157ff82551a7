// The groups a node of a disassembly hierarchy holds, as a sorted list: the
// form in which reports, verification and removal steps name a side of a
// split. Reads the hierarchy only.
#pragma once

#include <vector>

#include "kxDisassemblyHierarchy.h"

namespace velmora {

// The groups of hierarchy node `node`, ascending.
std::vector<unsigned> groupsOfNode(const kxDisassemblyHierarchy& hierarchy, unsigned node);

}  // namespace velmora
