// kx::kxController: something that animates a scene object over time. A
// controller is attached to at most one object, which holds a reference to
// it; the controller's back pointer to the object does not count, and is
// cleared when the object goes away.
#pragma once

#include "kxObject.h"

namespace kx {

class kxSpatial;

class kxController : public kxObject {
public:
    // Attaches `controller` to `object` (detaching it from a former one).
    static void AttachController(kxSpatial* object, kxController* controller);
    // Detaches `controller` from its object, if any.
    static void DetachController(kxController* controller);

    kxSpatial* GetObject() const { return mObject; }
    // Applies the controller's state at `time` (seconds) to its object.
    virtual void Update(double time) = 0;

private:
    friend class kxSpatial;
    kxSpatial* mObject = nullptr;
};

}  // namespace kx
