#pragma once

#include <mutex>

#include "foundations/referencecountedobject.h"

/// A counted pointer variable that several threads may read and assign at once.
template <typename T>
class GuardedReference {
 public:
    ReferencePtr<T> get() const {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        return mcReference;
    }
    /// What was held before is released after the guard has been let go, on the calling thread.
    void set(ReferencePtr<T> cReference) { exchange(std::move(cReference)).release(); }
    ReferencePtr<T> exchange(ReferencePtr<T> cReference) {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        std::swap(mcReference, cReference);
        return cReference;
    }

 private:
    mutable std::mutex mcMutex;
    ReferencePtr<T> mcReference;
};
