// kx::kxKeyframeController: animates the local translation of its object from
// keys (time, translation). Between two keys the translation is interpolated
// linearly; before the first key it is the first key's, after the last key the
// last key's. The key arrays are shared (kxTSharedArray), so one set of keys
// can drive several objects.
//
// A key translation is mapped into the object's local frame by the
// controller's key frame transformation `keyToLocal` before it is written:
// local translation = keyToLocal.GetMatrix() * key + keyToLocal.GetTranslate().
// The default (identity) writes the keys as they are; a caller whose keys are
// offsets in another frame passes the map that turns such an offset into the
// object's local translation.
//
// Invariants: key times are ascending (equal times allowed: the later key
// wins from that time on); only the first min(#times, #translations) keys are
// used. A controller with no key leaves its object alone.
#pragma once

#include "Wm4Vector3.h"
#include "kxController.h"
#include "kxGenericTransformation.h"
#include "kxTSharedArray.h"

namespace kx {

class kxKeyframeController : public kxController {
public:
    kxKeyframeController(kxTSharedArray<float>* times, kxTSharedArray<Wm4::Vector3<float>>* translations,
                         const kxGenericTransformation<float>& keyToLocal = kxGenericTransformation<float>());

    const kxTSharedArray<float>* GetTimes() const { return mTimes; }
    const kxTSharedArray<Wm4::Vector3<float>>* GetTranslations() const { return mTranslations; }
    const kxGenericTransformation<float>& GetKeyToLocal() const { return mKeyToLocal; }
    int GetKeyQuantity() const;

    // The key translation interpolated at `time` (zero when there is no key).
    Wm4::Vector3<float> GetTranslation(double time) const;

    // Writes keyToLocal(GetTranslation(time)) into the object's local
    // translation (marking the local transform changed). Does not update
    // world transforms: kxSpatial::UpdateControllers does that.
    void Update(double time) override;

private:
    kxPointer<kxTSharedArray<float>> mTimes;
    kxPointer<kxTSharedArray<Wm4::Vector3<float>>> mTranslations;
    kxGenericTransformation<float> mKeyToLocal;
};

}  // namespace kx
