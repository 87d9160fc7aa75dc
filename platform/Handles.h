// Kernel handles: numbers that stand for an object of the layer.
//
// A handle that was never given out, or was closed, is found to be none, also after its place was used again.
#pragma once

#include <memory>
#include <typeinfo>
#include <utility>

#include "win/types.h"

// The base of what a handle stands for. The object goes with its last handle, or later, with the last call that uses
// it.
class CKernelObject {
  public:
    CKernelObject() = default;
    virtual ~CKernelObject() = default;
    CKernelObject(const CKernelObject&) = delete;
    CKernelObject& operator=(const CKernelObject&) = delete;
};

// A new handle on the object; null when there is no memory for it.
HANDLE OpenHandle(std::shared_ptr<CKernelObject> object) noexcept;

// What the handle stands for; null for one that stands for nothing, or for something else.
std::shared_ptr<CKernelObject> ObjectOf(HANDLE handle) noexcept;
template <class Object>
std::shared_ptr<Object> ObjectOf(HANDLE handle) noexcept {
    std::shared_ptr<CKernelObject> object = ObjectOf(handle);
    const CKernelObject* const found = object.get();
    if (found && typeid(*found) == typeid(Object)) return std::static_pointer_cast<Object>(std::move(object));
    return std::dynamic_pointer_cast<Object>(object);
}
