// kx::kxTSharedArray<T>: a reference-counted array, so that several scene
// objects (for example the keyframe controllers of all meshes of one rigid
// group) can hold the same data through kxPointer without copying it.
//
// Invariant: GetQuantity() is the number of elements and GetData() points at
// that many contiguous elements (or is null when there are none). The array
// never changes its size after construction; elements may be edited.
#pragma once

#include <utility>
#include <vector>

#include "kxObject.h"

namespace kx {

template <class T>
class kxTSharedArray : public kxObject {
public:
    // `quantity` value-initialised elements.
    explicit kxTSharedArray(int quantity = 0) : mElements(static_cast<size_t>(quantity)) {}
    explicit kxTSharedArray(std::vector<T> elements) : mElements(std::move(elements)) {}

    int GetQuantity() const { return static_cast<int>(mElements.size()); }
    T* GetData() { return mElements.empty() ? nullptr : mElements.data(); }
    const T* GetData() const { return mElements.empty() ? nullptr : mElements.data(); }
    T& operator[](int i) { return mElements[static_cast<size_t>(i)]; }
    const T& operator[](int i) const { return mElements[static_cast<size_t>(i)]; }

private:
    std::vector<T> mElements;
};

}  // namespace kx
