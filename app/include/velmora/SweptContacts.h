// Contacts that motion analysis locked, tried again by sweeping.
//
// A contact whose motion analysis finds no removal direction makes the
// hierarchy builder keep its two groups together for good. On real models
// that is often an artefact rather than a fact: the faces touch, but no
// contact sample finds a partner (the contact has no points), or the parts
// are modelled into each other so that every sampled direction pushes into a
// face. A pair locked that way moves as one piece in every split, and when
// one of the two is held by a third part the plan has no clean split left.
//
// Here every contact without a direction is swept, the pair alone, along
// each candidate direction (the directions of the other contacts and the
// six axes, both senses; none that heads into the partner), with the
// verifier's initial-overlap allowance: the directions in which the first
// group really leaves the second become the contact's directions. A contact for which no candidate is clear stays
// locked: its pair truly cannot come apart and stays together in every
// split. The library's classes are used as they are; the result is a new
// diagram with the same edges in the same order, only the freed ones
// changed, and its direction set not yet computed.
#pragma once

#include <memory>
#include <vector>

#include "Wm4.h"
#include "kxContactDiagram.h"
#include "kxMeshGroups.h"
#include "velmora/PlanVerifier.h"

namespace velmora {

struct SweptContacts {
    // Edges of the diagram without a direction that a sweep freed, ascending.
    std::vector<unsigned> freed;
    // The diagram with those edges given their clear directions; null when
    // none was freed.
    std::unique_ptr<kxContactDiagram> diagram;
};

// Candidate lines of a diagram whose direction set is not yet computed: the
// three axes, then every edge direction whose line is not within
// `angleTolerance` degrees of one already listed, in edge order. Each is
// swept in both senses.
std::vector<Wm4::Vector3<double>> candidateDirections(const kxContactDiagram& diagram, float angleTolerance);

// Sweeps every directionless edge of `diagram` (built from `groups`, in the
// verifier's frame) along every candidate, both senses.
SweptContacts freeLockedContactsBySweep(const kxContactDiagram& diagram, const kxMeshGroups& groups,
                                        const PlanVerifier& verifier, float angleTolerance);

}  // namespace velmora
