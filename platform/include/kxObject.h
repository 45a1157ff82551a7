// kx::kxObject and kx::kxPointer<T>: intrusive reference counting for scene
// objects. An object is deleted when the last kxPointer to it lets go; raw
// pointers do not count. The count is atomic, so pointers to one object may be
// copied and released on several threads at once.
#pragma once

#include <atomic>
#include <cstddef>
#include <utility>

namespace kx {

class kxObject {
public:
    kxObject() = default;
    // A copy is a new object: it starts with no references.
    kxObject(const kxObject&) : mReferences(0) {}
    kxObject& operator=(const kxObject&) { return *this; }
    virtual ~kxObject() = default;

    void IncrementReferences() const { mReferences.fetch_add(1, std::memory_order_relaxed); }
    void DecrementReferences() const
    {
        if (mReferences.fetch_sub(1, std::memory_order_acq_rel) == 1)
            delete this;
    }
    int GetReferences() const { return mReferences.load(std::memory_order_relaxed); }

private:
    mutable std::atomic<int> mReferences{0};
};

template <class T>
class kxPointer {
public:
    kxPointer(T* object = nullptr) : mObject(object) { acquire(); }
    kxPointer(const kxPointer& other) : mObject(other.mObject) { acquire(); }
    kxPointer(kxPointer&& other) noexcept : mObject(std::exchange(other.mObject, nullptr)) {}
    template <class U>
    kxPointer(const kxPointer<U>& other) : mObject(other.get()) { acquire(); }
    ~kxPointer() { release(); }

    kxPointer& operator=(T* object)
    {
        kxPointer(object).swap(*this);
        return *this;
    }
    kxPointer& operator=(const kxPointer& other)
    {
        kxPointer(other).swap(*this);
        return *this;
    }
    kxPointer& operator=(kxPointer&& other) noexcept
    {
        kxPointer(std::move(other)).swap(*this);
        return *this;
    }

    T* get() const { return mObject; }
    T* operator->() const { return mObject; }
    T& operator*() const { return *mObject; }
    operator T*() const { return mObject; }
    bool operator==(std::nullptr_t) const { return mObject == nullptr; }
    bool operator!=(std::nullptr_t) const { return mObject != nullptr; }
    void swap(kxPointer& other) noexcept { std::swap(mObject, other.mObject); }

private:
    void acquire() const
    {
        if (mObject)
            mObject->IncrementReferences();
    }
    void release() const
    {
        if (mObject)
            mObject->DecrementReferences();
    }

    T* mObject;
};

}  // namespace kx
