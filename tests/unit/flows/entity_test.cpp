#include "flows/entity.h"

#include <cmath>
#include <limits>

#include "unit/flows/flowsupport.h"

using vnktest::record;
using vnktest::statuses;

class EntityTest : public vnktest::FlowTest {
 protected:
    ReferencePtr<Entity> mcEntity = makeReference<Entity>();
};

TEST_F(EntityTest, DescribesAndReportsNothingByItself) {
    EXPECT_TRUE(mcEntity->getParameterInfo().empty());
    EXPECT_TRUE(mcEntity->getParameters().empty());
}

TEST_F(EntityTest, EmptyRecordIsTakenInSilence) {
    utils::VariantRecord cRecord;
    mcEntity->setParameters(cRecord, mlErrors);
    EXPECT_TRUE(mlErrors.empty());
    EXPECT_TRUE(statuses().empty());
}

TEST_F(EntityTest, EachUnknownKeyGivesATextAndAStatusInRecordOrder) {
    auto cRecord = record("{\"zulu\":1,\"alpha\":2}");
    mcEntity->setParameters(cRecord, mlErrors);
    EXPECT_EQ(mlErrors, (ErrorList{"Unknown parameter 'alpha'", "Unknown parameter 'zulu'"}));
    EXPECT_EQ(statuses(), (std::vector<int32_t>{-33, -33}));
}

namespace {

// An entity with one numeric key, as every level of a chain takes its own.
class Numbered : public Entity {
 public:
    void setParameters(utils::VariantRecord& cRecord, ErrorList& lErrors) override {
        mfValue = cRecord.takeNumber("level").value_or(mfValue);
        Entity::setParameters(cRecord, lErrors);
    }
    float mfValue = 1.0f;
};

}  // namespace

TEST_F(EntityTest, NumericKeyThatCarriesATextComesOutAsUnknown) {
    auto cNumbered = makeReference<Numbered>();
    utils::VariantRecord cRecord;
    cRecord.set("level", "high");
    cNumbered->setParameters(cRecord, mlErrors);
    EXPECT_EQ(mlErrors, ErrorList{"Unknown parameter 'level'"});
    EXPECT_EQ(cNumbered->mfValue, 1.0f);
    EXPECT_EQ(cRecord.size(), 1u);
}

TEST_F(EntityTest, UnsignedNumberWithItsTopBitSetKeepsItsMagnitude) {
    auto cNumbered = makeReference<Numbered>();
    utils::VariantRecord cRecord;
    cRecord.set("level", uint64_t{0x8000000000000000u});
    cNumbered->setParameters(cRecord, mlErrors);
    EXPECT_TRUE(mlErrors.empty());
    EXPECT_EQ(cNumbered->mfValue, 9223372036854775808.0f);
    EXPECT_TRUE(cRecord.empty());
}

TEST(SchemaTest, NumericEntryHoldsAllItsKeys) {
    utils::VariantRecord cSchema;
    addNumericSchema(cSchema, "rate", "A rate", 4000.0f, 44100.0f, 8000.0f, "Hz", true);
    const utils::VariantRecord* pEntry = cSchema.find("rate")->getRecord();
    ASSERT_NE(pEntry, nullptr);
    EXPECT_EQ(pEntry->size(), 6u);
    EXPECT_EQ(pEntry->getText("description"), "A rate");
    EXPECT_EQ(pEntry->getText("units"), "Hz");
    EXPECT_EQ(pEntry->getBool("readonly"), true);
    EXPECT_EQ(pEntry->getNumber("min"), 4000.0f);
    EXPECT_EQ(pEntry->getNumber("max"), 44100.0f);
    EXPECT_EQ(pEntry->getNumber("default"), 8000.0f);
    EXPECT_EQ(pEntry->find("min")->getType(), utils::Variant::kFloat);
}

TEST(SchemaTest, EqualLimitsLeaveOutTheRangeAndTheDefault) {
    utils::VariantRecord cSchema;
    addNumericSchema(cSchema, "rate", "A rate", 5.0f, 5.0f, 3.0f, "", false);
    const utils::VariantRecord* pEntry = cSchema.find("rate")->getRecord();
    ASSERT_NE(pEntry, nullptr);
    EXPECT_EQ(pEntry->keys(), std::list<std::string>{"description"});
}

TEST(SchemaTest, DefaultOfZeroIsLeftOut) {
    utils::VariantRecord cSchema;
    addNumericSchema(cSchema, "rate", "A rate", -1.0f, 1.0f, 0.0f, "dB", false);
    const utils::VariantRecord* pEntry = cSchema.find("rate")->getRecord();
    ASSERT_NE(pEntry, nullptr);
    EXPECT_EQ(pEntry->keys(), (std::list<std::string>{"description", "max", "min", "units"}));
}

TEST(SchemaTest, EnumeratedEntryListsItsValues) {
    utils::VariantRecord cSchema;
    addEnumSchema(cSchema, "mode", "A mode", {"true", "false"}, true);
    const utils::VariantRecord* pEntry = cSchema.find("mode")->getRecord();
    ASSERT_NE(pEntry, nullptr);
    EXPECT_EQ(pEntry->keys(), (std::list<std::string>{"description", "readonly", "values"}));
    EXPECT_EQ(pEntry->find("values")->getArray().size(), 2u);
}

TEST(SchemaTest, TextEntryHoldsADescriptionAndPerhapsItsMarking) {
    utils::VariantRecord cSchema;
    addTextSchema(cSchema, "path", "A path", true);
    addTextSchema(cSchema, "name", "A name", false);
    EXPECT_EQ(cSchema.find("path")->getRecord()->keys(), (std::list<std::string>{"description", "readonly"}));
    EXPECT_EQ(cSchema.find("name")->getRecord()->keys(), std::list<std::string>{"description"});
}

namespace {

struct CountRow {
    utils::Variant mcValue;
    std::optional<uint32_t> muExpected;
};

}  // namespace

TEST(TakeCountTest, TakesEveryFormThatFitsAndLeavesTheOthers) {
    const float fNaN = std::numeric_limits<float>::quiet_NaN();
    const float fInf = std::numeric_limits<float>::infinity();
    const std::vector<CountRow> lRows{
        {utils::Variant(uint32_t{0xFFFFFFFFu}), 0xFFFFFFFFu},
        {utils::Variant(int32_t{7}), 7u},
        {utils::Variant(int32_t{-1}), {}},
        {utils::Variant(int64_t{0xFFFFFFFF}), 0xFFFFFFFFu},
        {utils::Variant(int64_t{0x100000000}), {}},
        {utils::Variant(int64_t{-1}), {}},
        {utils::Variant(uint64_t{12}), 12u},
        {utils::Variant(uint64_t{0x100000000u}), {}},
        {utils::Variant(5.4f), 5u},
        {utils::Variant(5.5f), 6u},
        {utils::Variant(-0.4f), 0u},
        {utils::Variant(-0.5f), {}},
        {utils::Variant(4294967040.0f), 4294967040u},
        {utils::Variant(4294967296.0f), 0u},
        {utils::Variant(4294967808.0f), {}},
        {utils::Variant(fNaN), {}},
        {utils::Variant(fInf), {}},
        {utils::Variant(true), {}},
        {utils::Variant(std::string("5")), {}},
    };
    for (size_t i = 0; i < lRows.size(); ++i) {
        utils::VariantRecord cRecord;
        cRecord.set("count", lRows[i].mcValue);
        EXPECT_EQ(takeCount(cRecord, "count"), lRows[i].muExpected) << "row " << i;
        EXPECT_EQ(cRecord.empty(), lRows[i].muExpected.has_value()) << "row " << i;
    }
    utils::VariantRecord cEmpty;
    EXPECT_FALSE(takeCount(cEmpty, "count"));
}
