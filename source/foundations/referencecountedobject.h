#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "foundations/fatalerror.h"

namespace utils {

/// Base of every object with a shared life. The count starts at 0: a new object is owned by nobody.
class ReferenceCountedObject {
 public:
    ReferenceCountedObject() = default;
    ReferenceCountedObject(const ReferenceCountedObject&) {}
    ReferenceCountedObject& operator=(const ReferenceCountedObject&) { return *this; }
    virtual ~ReferenceCountedObject() = default;

    void addReference() const noexcept { muCount.fetch_add(1, std::memory_order_relaxed); }

    /// Adds a reference unless the last one has gone already. For those who reach the object through a
    /// plain pointer that the object's end clears: true means the object is held.
    bool tryAddReference() const noexcept {
        uint32_t uCount = muCount.load(std::memory_order_relaxed);
        while (uCount != 0)
            if (muCount.compare_exchange_weak(uCount, uCount + 1, std::memory_order_acquire,
                                              std::memory_order_relaxed))
                return true;
        return false;
    }

    void releaseReference() const noexcept {
        if (muCount.fetch_sub(1, std::memory_order_acq_rel) == 1)
            const_cast<ReferenceCountedObject*>(this)->destroySelf();
    }

    uint32_t referenceCount() const noexcept { return muCount.load(std::memory_order_relaxed); }

 protected:
    /// Called when the last reference goes, on the thread that drops it. A class that owns a thread puts
    /// the end off until its body has returned (utils::Thread::retire).
    virtual void destroySelf() noexcept { delete this; }

 private:
    mutable std::atomic<uint32_t> muCount{0};
};

}  // namespace utils

/// Intrusive counted pointer. Passed by value: the callee owns a reference. Dereferencing null is an
/// assertion failure; testing for null is not.
template <typename T>
class ReferencePtr {
 public:
    ReferencePtr() noexcept = default;
    ReferencePtr(std::nullptr_t) noexcept {}
    ReferencePtr(T* pObject) noexcept : mpClientObject(pObject) { acquire(); }
    ReferencePtr(const ReferencePtr& cOther) noexcept : mpClientObject(cOther.mpClientObject) { acquire(); }
    ReferencePtr(ReferencePtr&& cOther) noexcept : mpClientObject(std::exchange(cOther.mpClientObject, nullptr)) {}
    template <typename U>
        requires std::is_convertible_v<U*, T*>
    ReferencePtr(const ReferencePtr<U>& cOther) noexcept : mpClientObject(cOther.get()) {
        acquire();
    }
    ~ReferencePtr() { release(); }

    /// Wraps a pointer on which a reference has been taken already (tryAddReference).
    static ReferencePtr adopt(T* pObject) noexcept {
        ReferencePtr cResult;
        cResult.mpClientObject = pObject;
        return cResult;
    }

    ReferencePtr& operator=(const ReferencePtr& cOther) noexcept {
        if (mpClientObject != cOther.mpClientObject) {
            ReferencePtr cKeep(cOther);
            std::swap(mpClientObject, cKeep.mpClientObject);
        }
        return *this;
    }
    ReferencePtr& operator=(ReferencePtr&& cOther) noexcept {
        if (this != &cOther) {
            ReferencePtr cKeep(std::move(cOther));
            std::swap(mpClientObject, cKeep.mpClientObject);
        }
        return *this;
    }

    T* operator->() const {
        VNK_ASSERT(mpClientObject != nullptr);
        return mpClientObject;
    }
    T& operator*() const {
        VNK_ASSERT(mpClientObject != nullptr);
        return *mpClientObject;
    }
    T* get() const noexcept { return mpClientObject; }
    explicit operator bool() const noexcept { return mpClientObject != nullptr; }

    void release() noexcept {
        if (T* pObject = std::exchange(mpClientObject, nullptr))
            pObject->releaseReference();
    }

    friend bool operator==(const ReferencePtr& a, const ReferencePtr& b) noexcept { return a.get() == b.get(); }
    friend bool operator==(const ReferencePtr& a, std::nullptr_t) noexcept { return a.get() == nullptr; }

 private:
    void acquire() const noexcept {
        if (mpClientObject)
            mpClientObject->addReference();
    }

    T* mpClientObject = nullptr;
};

/// Cast of a counted pointer by dynamic type; null when the object is of another type.
template <typename To, typename From>
ReferencePtr<To> dynamicReferenceCast(const ReferencePtr<From>& cFrom) {
    return ReferencePtr<To>(dynamic_cast<To*>(cFrom.get()));
}

template <typename T, typename... Args>
ReferencePtr<T> makeReference(Args&&... args) {
    return ReferencePtr<T>(new T(std::forward<Args>(args)...));
}
