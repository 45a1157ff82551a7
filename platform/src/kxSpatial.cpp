#include "kxSpatial.h"

#include <algorithm>

#include "kxController.h"

namespace kx {

kxSpatial::~kxSpatial()
{
    for (kxController* controller : mControllers) {
        controller->mObject = nullptr;
        controller->DecrementReferences();
    }
}

void kxSpatial::UpdateControllers(double time)
{
    for (kxController* controller : mControllers)
        controller->Update(time);
    UpdateGS();
}

void kxSpatial::updateWorldFromParent()
{
    World = mParent ? kxGenericTransformation<float>::Product(mParent->World, mLocal) : mLocal;
}

void kxSpatial::UpdateGS() { updateWorldFromParent(); }

kxNode::~kxNode()
{
    for (kxPointer<kxSpatial>& child : mChildren)
        child->mParent = nullptr;
}

int kxNode::AttachChild(kxSpatial* child)
{
    kxPointer<kxSpatial> keep(child);  // a re-parented child must survive its detach
    if (child->mParent)
        child->mParent->DetachChild(child);
    child->mParent = this;
    mChildren.push_back(keep);
    return GetQuantity() - 1;
}

int kxNode::DetachChild(kxSpatial* child)
{
    auto it = std::find_if(mChildren.begin(), mChildren.end(),
                           [child](const kxPointer<kxSpatial>& c) { return c.get() == child; });
    if (it == mChildren.end())
        return -1;
    const int index = static_cast<int>(it - mChildren.begin());
    child->mParent = nullptr;
    mChildren.erase(it);
    return index;
}

void kxNode::UpdateGS()
{
    updateWorldFromParent();
    for (kxPointer<kxSpatial>& child : mChildren)
        child->UpdateGS();
}

}  // namespace kx
