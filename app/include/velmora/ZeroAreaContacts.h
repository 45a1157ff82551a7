// Contacts that touch without area: two parts that meet only along an edge or
// at a corner.
//
// The library samples contact points strictly inside the touching faces and
// pairs each with the face across it. Where the faces of two parts meet only
// along a line or in a point, no sample finds a partner, motion analysis gets
// no points, and the contact comes out with no removal direction at all: the
// hierarchy builder then never separates the pair, so three cubes in an L or
// a grid of cubes is reported inseparable.
//
// Here such an edge is recognised (no direction, and its touching faces
// overlap on no area once projected onto each other) and given the
// directions its touching faces really leave free: those that move the first
// group away from, or along, every touching face of the second. The library's
// classes are used as they are; the fix is a new diagram with the same edges
// in the same order, only the zero-area ones changed. Edges with any area,
// and edges that have directions, are copied untouched.
#pragma once

#include <memory>
#include <vector>

#include "kxContactDiagram.h"
#include "kxMeshGroups.h"

namespace velmora {

struct ZeroAreaContacts {
    // One flag per edge of the diagram, in its order: the contact has no area.
    std::vector<bool> zeroArea;
    // The diagram with the zero-area edges freed (directions and a contact
    // point where the parts touch), its direction set not yet computed; null
    // when no edge lacks area.
    std::unique_ptr<kxContactDiagram> diagram;
};

// Looks at every edge of `diagram` (built from `groups`) that has no removal
// direction. The meshes of `groups` must have World identity.
ZeroAreaContacts freeZeroAreaContacts(const kxContactDiagram& diagram, const kxMeshGroups& groups);

// The directions, for a part whose touching faces have the given outward unit
// normals, that do not push into any of them by more than ten degrees:
// the reverse of the mean normal, then each principal axis of the normals in
// the sense or senses that are free, a direction followed by its opposite
// when both are (the form motion analysis gives its results in).
std::vector<Wm4::Vector3<double>> freeDirectionsOfTouchingFaces(const std::vector<Wm4::Vector3<double>>& normals);

}  // namespace velmora
