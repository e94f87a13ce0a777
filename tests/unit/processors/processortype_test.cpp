#include "processors/processortype.h"

#include <gtest/gtest.h>

#include "support/plainprocessor.h"

namespace {

class Made : public vnktest::PlainProcessor {};
class MadeToo : public vnktest::PlainProcessor {};

using Names = std::list<std::string>;

}  // namespace

TEST(ProcessorType, FindsNoneWhereNoneIsRegistered) {
    EXPECT_EQ(ProcessorType::find("Made"), nullptr);
    EXPECT_TRUE(ProcessorType::names().empty());
}

TEST(ProcessorType, FindMakesANewProcessorOfTheTypeWithExactlyThisName) {
    ProcessorTypeOf<Made> cMade{"Made"};
    ProcessorTypeOf<MadeToo> cMadeToo{"MadeToo"};
    const ReferencePtr<Processor> cFirst = ProcessorType::find("Made");
    const ReferencePtr<Processor> cSecond = ProcessorType::find("Made");
    EXPECT_TRUE(dynamicReferenceCast<Made>(cFirst));
    EXPECT_TRUE(dynamicReferenceCast<Made>(cSecond));
    EXPECT_FALSE(cFirst == cSecond);
    EXPECT_TRUE(dynamicReferenceCast<MadeToo>(ProcessorType::find("MadeToo")));
    for (const char* pName : {"", "made", "Mad", "Made ", " Made", "MadeTo", "Unknown"})
        EXPECT_EQ(ProcessorType::find(pName), nullptr) << pName;
    EXPECT_EQ(ProcessorType::find(std::string("Made\0", 5)), nullptr);
}

TEST(ProcessorType, NamesAreInTheOrderOfConstructionAndGoWithTheirTypes) {
    ProcessorTypeOf<Made> cZ{"Z"};
    {
        ProcessorTypeOf<Made> cA{"A"};
        ProcessorTypeOf<Made> cM{"M"};
        EXPECT_EQ(ProcessorType::names(), (Names{"Z", "A", "M"}));
    }
    EXPECT_EQ(ProcessorType::names(), (Names{"Z"}));
    EXPECT_EQ(ProcessorType::find("A"), nullptr);
}

TEST(ProcessorType, OfTwoTypesWithOneNameTheEarlierIsFound) {
    ProcessorTypeOf<Made> cFirst{"X"};
    ProcessorTypeOf<MadeToo> cSecond{"X"};
    EXPECT_TRUE(dynamicReferenceCast<Made>(ProcessorType::find("X")));
    EXPECT_EQ(ProcessorType::names(), (Names{"X", "X"}));
}

TEST(ProcessorType, TheListThatHasGoneComesBackWithTheNextType) {
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(ProcessorType::names().empty());
        ProcessorTypeOf<Made> cMade{"Made"};
        EXPECT_EQ(ProcessorType::names(), (Names{"Made"}));
    }
}
