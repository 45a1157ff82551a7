// kx::kxSpatial and kx::kxNode: the scene-graph tree. A spatial has a local
// transformation relative to its parent and a world transformation `World`
// (parent's world after local). World is recomputed by UpdateGS from the root
// down; a spatial without a parent has World = Local after UpdateGS. Code that
// places parentless meshes directly may set World itself and not call UpdateGS.
// A node owns its children through reference-counted pointers; the parent link
// is a plain pointer.
#pragma once

#include <string>
#include <vector>

#include "kxGenericTransformation.h"
#include "kxObject.h"

namespace kx {

class kxNode;
class kxController;

class kxSpatial : public kxObject {
public:
    kxSpatial() = default;
    ~kxSpatial() override;

    kxGenericTransformation<float> World;

    const kxGenericTransformation<float>& GetLocalTransform() const { return mLocal; }
    // Writable local transformation; `markChanged` records that it was edited.
    kxGenericTransformation<float>& editLocalTransform(bool markChanged)
    {
        mLocalChanged = mLocalChanged || markChanged;
        return mLocal;
    }
    bool isLocalTransformChanged() const { return mLocalChanged; }
    void clearLocalTransformChanged() { mLocalChanged = false; }

    kxNode* GetParent() const { return mParent; }
    const std::string& GetName() const { return mName; }
    void SetName(const std::string& name) { mName = name; }

    // Controllers attached to this object (see kxController::AttachController).
    const std::vector<kxController*>& GetControllers() const { return mControllers; }
    // Runs every attached controller at `time`, then recomputes world transforms below.
    void UpdateControllers(double time);

    // Recomputes World (and, for nodes, every descendant's) from the parent.
    virtual void UpdateGS();

protected:
    void updateWorldFromParent();

private:
    friend class kxNode;
    friend class kxController;

    kxGenericTransformation<float> mLocal;
    bool mLocalChanged = false;
    kxNode* mParent = nullptr;
    std::string mName;
    std::vector<kxController*> mControllers;  // owned: one reference each
};

class kxNode : public kxSpatial {
public:
    ~kxNode() override;

    // Attaches `child` (detaching it from a former parent); returns its index.
    int AttachChild(kxSpatial* child);
    // Detaches `child` if it is a child of this node; returns its former index or -1.
    int DetachChild(kxSpatial* child);
    int GetQuantity() const { return static_cast<int>(mChildren.size()); }
    kxSpatial* GetChild(int i) const { return mChildren[static_cast<size_t>(i)]; }

    void UpdateGS() override;

private:
    std::vector<kxPointer<kxSpatial>> mChildren;
};

}  // namespace kx
