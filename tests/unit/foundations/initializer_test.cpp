#include "foundations/initializer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

class Noted : public utils::Initializer {
 public:
    Noted(std::string& journal, char cName) : mcJournal(journal), mcName(cName) {}
    bool initialise() override {
        mcJournal += mcName;
        return mcName != 'b';
    }
    void finalise() override { mcJournal += static_cast<char>(mcName - 'a' + 'A'); }

 private:
    std::string& mcJournal;
    char mcName;
};

TEST(Initializer, runsInOrderOfConstructionBothWays) {
    std::string journal;
    const Noted cFirst(journal, 'a');
    auto pSecond = std::make_unique<Noted>(journal, 'b');
    const Noted cThird(journal, 'c');
    utils::Initializer::initialiseAll();
    EXPECT_EQ(journal, "abc") << "the failure of one stops nobody";
    utils::Initializer::finaliseAll();
    EXPECT_EQ(journal, "abcABC");
    pSecond.reset();
    journal.clear();
    utils::Initializer::initialiseAll();
    utils::Initializer::finaliseAll();
    EXPECT_EQ(journal, "acAC");
}

TEST(Initializer, theSignalSlotDoesNothing) {
    utils::SIGInitialize cSlot;
    EXPECT_TRUE(cSlot.initialise());
    cSlot.finalise();
}

/// Seeds the library's generator and gives a generator of the same state.
std::mt19937 seedBoth() {
    utils::_InitRandom cInitialiser;
    std::time_t iBefore = 0;
    do {
        iBefore = std::time(nullptr);
        EXPECT_TRUE(cInitialiser.initialise());
    } while (iBefore != std::time(nullptr));
    cInitialiser.finalise();
    return std::mt19937(static_cast<std::mt19937::result_type>(iBefore));
}

TEST(RandomValue, isSeededWithTheSeconds) {
    std::mt19937 cExpected = seedBoth();
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(utils::randomValue(), cExpected());
}

TEST(RandomValue, leavesTheHostsGeneratorAlone) {
    std::srand(42);
    const int iFirst = std::rand();
    const int iSecond = std::rand();
    std::srand(42);
    utils::_InitRandom().initialise();
    EXPECT_EQ(std::rand(), iFirst);
    utils::randomValue();
    EXPECT_EQ(std::rand(), iSecond);
}

TEST(RandomValue, severalThreadsDealOneSequenceOut) {
    std::mt19937 cExpected = seedBoth();
    std::vector<std::vector<unsigned>> cDrawn(4);
    std::vector<std::thread> cThreads;
    for (auto& cOwn : cDrawn)
        cThreads.emplace_back([&cOwn] {
            for (int i = 0; i < 10'000; ++i)
                cOwn.push_back(utils::randomValue());
        });
    std::vector<unsigned> cAll;
    for (size_t i = 0; i < cDrawn.size(); ++i) {
        cThreads[i].join();
        cAll.insert(cAll.end(), cDrawn[i].begin(), cDrawn[i].end());
    }
    std::vector<unsigned> cAlone(cAll.size());
    std::generate(cAlone.begin(), cAlone.end(), std::ref(cExpected));
    std::sort(cAll.begin(), cAll.end());
    std::sort(cAlone.begin(), cAlone.end());
    EXPECT_EQ(cAll, cAlone);
}

}  // namespace
