#include <gtest/gtest.h>

#include <atomic>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "foundations/alignedarray.h"
#include "foundations/fatalerror.h"
#include "foundations/guardedreference.h"
#include "foundations/namedlock.h"
#include "foundations/referencecountedobject.h"

namespace {

class Counted : public utils::ReferenceCountedObject {
 public:
    explicit Counted(std::atomic<int>& iAlive) : miAlive(iAlive) { ++miAlive; }
    Counted(const Counted& cOther) : ReferenceCountedObject(cOther), miAlive(cOther.miAlive) { ++miAlive; }
    ~Counted() override { --miAlive; }
    int miValue = 7;

 private:
    std::atomic<int>& miAlive;
};

class Derived : public Counted {
    using Counted::Counted;
};

TEST(ReferencePtr, anObjectOfCountZeroDiesWithItsFirstReference) {
    std::atomic<int> iAlive{0};
    auto* pObject = new Counted(iAlive);
    EXPECT_EQ(pObject->referenceCount(), 0u);
    ReferencePtr<Counted> cPointer(pObject);
    EXPECT_EQ(pObject->referenceCount(), 1u);
    cPointer.release();
    EXPECT_EQ(iAlive, 0);
    EXPECT_FALSE(cPointer);
}

TEST(ReferencePtr, aCopiedObjectStartsWithNoReferences) {
    std::atomic<int> iAlive{0};
    const auto cFirst = makeReference<Counted>(iAlive);
    const auto cSecond = makeReference<Counted>(*cFirst);
    EXPECT_EQ(cFirst->referenceCount(), 1u);
    EXPECT_EQ(cSecond->referenceCount(), 1u);
    EXPECT_EQ(iAlive, 2);
}

TEST(ReferencePtr, assignmentHoldsTheNewBeforeItReleasesTheOld) {
    std::atomic<int> iAlive{0};
    auto cPointer = makeReference<Counted>(iAlive);
    Counted* const pFirst = cPointer.get();
    const ReferencePtr<Counted>& cSame = cPointer;
    cPointer = cSame;
    EXPECT_EQ(cPointer.get(), pFirst);
    EXPECT_EQ(pFirst->referenceCount(), 1u);
    cPointer = makeReference<Counted>(iAlive);
    EXPECT_EQ(iAlive, 1);
    cPointer = nullptr;
    EXPECT_EQ(iAlive, 0);
}

TEST(ReferencePtr, castsFollowTheDynamicType) {
    std::atomic<int> iAlive{0};
    const ReferencePtr<Counted> cDerived = makeReference<Derived>(iAlive);
    EXPECT_EQ(dynamicReferenceCast<Derived>(cDerived).get(), cDerived.get());
    EXPECT_EQ(dynamicReferenceCast<Derived>(makeReference<Counted>(iAlive)), nullptr);
    EXPECT_EQ(iAlive, 1);
}

TEST(ReferencePtr, dereferencingNullIsAnAssertion) {
    const ReferencePtr<Counted> cNull;
    try {
        EXPECT_EQ(cNull->miValue, 0);
        ADD_FAILURE() << "no assertion";
    } catch (const utils::FatalError& cError) {
        EXPECT_TRUE(cError.message().starts_with("ASSERT failed <mpClientObject != nullptr> "))
            << cError.message();
        EXPECT_NE(cError.message().find("referencecountedobject"), std::string::npos);
        EXPECT_NE(cError.message().find("::L"), std::string::npos);
    }
    EXPECT_THROW((void)*cNull, utils::FatalError);
}

TEST(FatalError, anAssertionNamesItsConditionAndItsPlaceInTheTree) {
    const int iTwo = 2;
    const int iLine = __LINE__ + 2;
    try {
        VNK_ASSERT(iTwo == 3);
        ADD_FAILURE();
    } catch (const utils::FatalError& cError) {
        EXPECT_EQ(cError.message(),
                  "ASSERT failed <iTwo == 3> tests/unit/foundations/references_test.cpp::L" +
                      std::to_string(iLine));
    }
    try {
        VNK_ASSERT_TEXT(iTwo == 3, "uTwo == uThree");
        ADD_FAILURE();
    } catch (const utils::FatalError& cError) {
        EXPECT_TRUE(cError.message().starts_with("ASSERT failed <uTwo == uThree> ")) << cError.message();
    }
    VNK_ASSERT(iTwo == 2);
}

TEST(ReferencePtr, anObjectOnItsWayOutIsNotTakenAgain) {
    std::atomic<int> iAlive{0};
    Counted cObject(iAlive);
    EXPECT_FALSE(cObject.tryAddReference());
    cObject.addReference();
    EXPECT_TRUE(cObject.tryAddReference());
    EXPECT_EQ(cObject.referenceCount(), 2u);
}

TEST(GuardedReference, readersAndWritersShareOneVariable) {
    std::atomic<int> iAlive{0};
    GuardedReference<Counted> cShared;
    EXPECT_EQ(cShared.get(), nullptr);
    std::atomic<bool> bEnd{false};
    std::vector<std::thread> cReaders;
    for (int i = 0; i < 2; ++i)
        cReaders.emplace_back([&] {
            while (!bEnd) {
                const auto cHeld = cShared.get();
                ASSERT_TRUE(!cHeld || cHeld->miValue == 7);
                std::this_thread::yield();
            }
        });
    for (int i = 0; i < 20'000; ++i)
        cShared.set(i % 3 ? makeReference<Counted>(iAlive) : nullptr);
    bEnd = true;
    for (auto& cThread : cReaders)
        cThread.join();
    const auto cLast = cShared.exchange(nullptr);
    EXPECT_EQ(iAlive, 1);
    EXPECT_EQ(cShared.get(), nullptr);
}

TEST(ReferencePtr, countsAreRightAfterAHammer) {
    std::atomic<int> iAlive{0};
    auto cObject = makeReference<Counted>(iAlive);
    std::vector<std::thread> cThreads;
    for (int i = 0; i < 4; ++i)
        cThreads.emplace_back([cOwn = cObject] {
            for (int j = 0; j < 100'000; ++j) {
                ReferencePtr<Counted> cCopy = cOwn;
                ASSERT_EQ(cCopy->miValue, 7);
            }
        });
    for (auto& cThread : cThreads)
        cThread.join();
    EXPECT_EQ(cObject->referenceCount(), 1u);
}

TEST(AlignedArray, allocatesAWholeNumberOfVectors) {
    const FloatArray cNine(9);
    EXPECT_EQ(cNine.getAllocated(), 16u);
    EXPECT_EQ(cNine.getActive(), 9u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(cNine.getData()) % 32, 0u);
    const ComplexArray cComplex(9);
    EXPECT_EQ(cComplex.getAllocated(), 12u);
    EXPECT_EQ(cComplex.getActive(), 9u);
    const AlignedArray<float, 16> cTaps(9);
    EXPECT_EQ(cTaps.getAllocated(), 12u);
    EXPECT_EQ(FloatArray(16).getAllocated(), 16u);
}

TEST(AlignedArray, aSizeOfZeroHasBothCountsZero) {
    const FloatArray cEmpty(0);
    EXPECT_EQ(cEmpty.getAllocated(), 0u);
    EXPECT_EQ(cEmpty.getActive(), 0u);
    const FloatArray cCopy(cEmpty);
    EXPECT_EQ(cCopy.getAllocated(), 0u);
}

TEST(AlignedArray, aCopyTakesTheWholeStorageAndBothCounts) {
    FloatArray cSource(9);
    for (uint32_t i = 0; i < cSource.getAllocated(); ++i)
        cSource.getData()[i] = static_cast<float>(i);
    cSource.setActive(4);
    const FloatArray cCopy(cSource);
    EXPECT_EQ(cCopy.getActive(), 4u);
    EXPECT_EQ(cCopy.getAllocated(), 16u);
    for (uint32_t i = 0; i < cCopy.getAllocated(); ++i)
        EXPECT_EQ(cCopy.getData()[i], static_cast<float>(i));
    cSource.setActive(1000);
    EXPECT_EQ(cSource.getActive(), 16u);
}

TEST(AlignedArray, aCountWhoseRoundingPasses32BitsIsRefused) {
    EXPECT_THROW(FloatArray(0xFFFFFFFF), std::bad_alloc);
    EXPECT_THROW(ComplexArray(0xFFFFFFFD), std::bad_alloc);
}

TEST(NamedLock, isRecursiveAndKeepsOthersOut) {
    utils::NamedLock cLock("Test::mcLock");
    int iCount = 0;
    std::vector<std::thread> cThreads;
    for (int i = 0; i < 4; ++i)
        cThreads.emplace_back([&]() NO_THREAD_SAFETY_ANALYSIS {
            for (int j = 0; j < 10'000; ++j) {
                const utils::ScopedLock cOuter(cLock);
                const utils::ScopedLock cInner(cLock);
                ++iCount;
            }
        });
    for (auto& cThread : cThreads)
        cThread.join();
    EXPECT_EQ(iCount, 40'000);
}

TEST(NamedLock, aScopeMayLetGoAndTakeAgain) {
    utils::NamedLock cLock("Test::mcLock");
    utils::ScopedLock cGuard(cLock);
    cGuard.unlock();
    std::thread([&] { const utils::ScopedLock cOther(cLock); }).join();
    cGuard.lock();
}

}  // namespace
