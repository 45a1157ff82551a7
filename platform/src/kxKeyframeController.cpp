#include "kxKeyframeController.h"

#include <algorithm>

#include "kxSpatial.h"

namespace kx {

kxKeyframeController::kxKeyframeController(kxTSharedArray<float>* times,
                                           kxTSharedArray<Wm4::Vector3<float>>* translations,
                                           const kxGenericTransformation<float>& keyToLocal)
    : mTimes(times), mTranslations(translations), mKeyToLocal(keyToLocal)
{
}

int kxKeyframeController::GetKeyQuantity() const
{
    if (mTimes == nullptr || mTranslations == nullptr)
        return 0;
    return std::min(mTimes->GetQuantity(), mTranslations->GetQuantity());
}

Wm4::Vector3<float> kxKeyframeController::GetTranslation(double time) const
{
    const int quantity = GetKeyQuantity();
    if (quantity == 0)
        return Wm4::Vector3<float>::ZERO;
    const float* times = mTimes->GetData();
    const kxTSharedArray<Wm4::Vector3<float>>& keys = *mTranslations;
    // First key strictly after `time`: the segment is [next - 1, next].
    const int next = static_cast<int>(std::upper_bound(times, times + quantity, time,
                                                       [](double t, float key) { return t < double(key); }) -
                                      times);
    if (next == 0)
        return keys[0];
    if (next == quantity)
        return keys[quantity - 1];
    const double t0 = times[next - 1], t1 = times[next];
    const float w = static_cast<float>((time - t0) / (t1 - t0));
    return keys[next - 1] + (keys[next] - keys[next - 1]) * w;
}

void kxKeyframeController::Update(double time)
{
    kxSpatial* object = GetObject();
    if (object == nullptr || GetKeyQuantity() == 0)
        return;
    object->editLocalTransform(true).SetTranslate(mKeyToLocal.ApplyForward(GetTranslation(time)));
}

}  // namespace kx
