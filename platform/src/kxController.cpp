#include "kxController.h"

#include <algorithm>

#include "kxSpatial.h"

namespace kx {

void kxController::AttachController(kxSpatial* object, kxController* controller)
{
    controller->IncrementReferences();  // keep it alive across the detach below
    DetachController(controller);
    controller->mObject = object;
    object->mControllers.push_back(controller);
}

void kxController::DetachController(kxController* controller)
{
    kxSpatial* object = controller->mObject;
    if (object == nullptr)
        return;
    auto& list = object->mControllers;
    list.erase(std::find(list.begin(), list.end(), controller));
    controller->mObject = nullptr;
    controller->DecrementReferences();
}

}  // namespace kx
