#include "receivers/ifbwflatten.h"

#include <gtest/gtest.h>

#include <cmath>

#include "support/errorlog.h"
#include "support/faketransport.h"

using Lines = std::vector<std::string>;

namespace {

constexpr CorrectionCommands kCommands = {"DATA:CORRECTION:SIGNAL:SIZE?",
                                          "DATA:CORRECTION:NOISE:SIZE?",
                                          "DATA:CORRECTION:%s:READ? 0, %d",
                                          "DATA:CORRECTION:%s:READ? %d, %d",
                                          "DATA:CORRECTION:%s:READ? %d, %d",
                                          "SIGNAL",
                                          "NOISE"};

void putU16(std::string& bytes, uint32_t uValue) {
    bytes += static_cast<char>(uValue >> 8 & 0xFF);
    bytes += static_cast<char>(uValue & 0xFF);
}

void putU32(std::string& bytes, uint32_t uValue) {
    putU16(bytes, uValue >> 16);
    putU16(bytes, uValue & 0xFFFF);
}

struct TableRow {
    uint32_t mukHz;
    uint32_t muVector;
};

/// One data set as the unit holds it.
std::string dataSet(const std::vector<TableRow>& lRows, const std::vector<std::vector<int32_t>>& lVectors) {
    std::string bytes;
    putU16(bytes, 0xABCD);
    putU16(bytes, static_cast<uint32_t>(lRows.size()));
    putU16(bytes, static_cast<uint32_t>(lVectors.size()));
    putU16(bytes, lVectors.empty() ? 0 : static_cast<uint32_t>(lVectors[0].size()));
    for (int i = 0; i < 40; ++i)
        bytes += static_cast<char>(i);
    for (const TableRow& cRow : lRows) {
        putU32(bytes, cRow.mukHz);
        putU16(bytes, cRow.muVector);
    }
    for (size_t i = 0; i < lVectors.size(); ++i) {
        putU16(bytes, static_cast<uint32_t>(i));
        for (const int32_t iPoint : lVectors[i])
            putU32(bytes, static_cast<uint32_t>(iPoint));
    }
    return bytes;
}

std::string block(const std::string& payload) {
    const std::string digits = std::to_string(payload.size());
    return "#" + std::to_string(digits.size()) + digits + payload + "\n";
}

/// Answers reads from the two sets, as a unit does.
std::string serve(const std::string& query, const std::string& signal, const std::string& noise) {
    if (query == kCommands.mpSignalSize)
        return std::to_string(signal.size()) + "\n";
    if (query == kCommands.mpNoiseSize)
        return std::to_string(noise.size()) + "\n";
    const std::string& set = query.find(":SIGNAL:") != std::string::npos ? signal : noise;
    size_t uOffset = 0, uLength = 0;
    if (std::sscanf(query.c_str() + query.find('?'), "? %zu, %zu", &uOffset, &uLength) != 2 ||
        uOffset > set.size())
        return {};
    return block(set.substr(uOffset, uLength));
}

class Flatten : public testing::Test {
 protected:
    ReferencePtr<_IFBWFlatten> read(const std::string& signal, const std::string& noise) {
        mcUnit->otherwise([=](const std::string& query) { return serve(query, signal, noise); });
        return makeReference<_IFBWFlatten>(
            makeReference<SCPIProtocol>(makeReference<vnktest::FakeTransport>("fake:37001", mcUnit)),
            kCommands);
    }
    ReferencePtr<_IFBWFlatten> read(const std::string& signal) { return read(signal, dataSet({}, {})); }

    std::shared_ptr<vnktest::FakeUnit> mcUnit = std::make_shared<vnktest::FakeUnit>();
};

const std::vector<TableRow> kTwoRows = {{1000, 0}, {2000, 1}};

}  // namespace

TEST_F(Flatten, ReadsBothSetsInPieces) {
    const auto cFlatten = read(dataSet({{2000, 1}, {1000, 0}}, {{0, 1000000}, {2000000, -1000000}}),
                               dataSet({{500, 0}}, {{7}}));
    EXPECT_TRUE(cFlatten->isValid());
    EXPECT_EQ(mcUnit->takeJournal(),
              (Lines{"*CLS", "DATA:CORRECTION:SIGNAL:SIZE?", "DATA:CORRECTION:NOISE:SIZE?",
                     "DATA:CORRECTION:SIGNAL:READ? 0, 48", "DATA:CORRECTION:SIGNAL:READ? 48, 12",
                     "DATA:CORRECTION:SIGNAL:READ? 60, 10", "DATA:CORRECTION:SIGNAL:READ? 70, 10",
                     "DATA:CORRECTION:NOISE:READ? 0, 48", "DATA:CORRECTION:NOISE:READ? 48, 6",
                     "DATA:CORRECTION:NOISE:READ? 54, 6"}));
    const auto& cSignal = cFlatten->signal();
    EXPECT_EQ(cSignal.mcHeader->muFirstWord, 0xABCD);
    EXPECT_EQ(cSignal.mcHeader->mRaw[39], 39);
    EXPECT_EQ(cSignal.miSize, 80);
    ASSERT_EQ(cSignal.mlTable.size(), 2u);
    EXPECT_EQ(cSignal.mlTable[0].mfFrequencyHz, 1e6f);  // sorted
    ASSERT_EQ(cSignal.mlVectors.size(), 2u);
    const float* pPoints = cSignal.mlVectors[0]->mcPoints->getData();
    EXPECT_EQ(pPoints[0], 1.0f);
    EXPECT_NEAR(pPoints[1], std::pow(10.0, -0.05), 1e-7);
    EXPECT_NEAR(cSignal.mlVectors[1]->mcPoints->getData()[1], std::pow(10.0, 0.05), 1e-7);
    EXPECT_EQ(cFlatten->noise().mlVectors.size(), 1u);
}

TEST_F(Flatten, AUnitWithoutCorrectionDataIsAskedNoFurther) {
    for (const char* pSize : {"0\n", "-1\n", "none\n", ""}) {
        mcUnit->reply(kCommands.mpSignalSize, {pSize});
        EXPECT_FALSE(read(dataSet({}, {}))->isValid()) << pSize;
        EXPECT_EQ(mcUnit->takeJournal(), (Lines{"*CLS", kCommands.mpSignalSize}));
    }
}

TEST_F(Flatten, WithoutNoiseDataNothingIsRead) {
    mcUnit->reply(kCommands.mpNoiseSize, {"0\n"});
    EXPECT_FALSE(read(dataSet({}, {}))->isValid());
    EXPECT_EQ(mcUnit->takeJournal(), (Lines{"*CLS", kCommands.mpSignalSize, kCommands.mpNoiseSize}));
}

TEST_F(Flatten, AReadOfTheWrongLengthFailsItsSet) {
    const std::string set = dataSet(kTwoRows, {{0}, {0}});
    for (const char* pQuery : {"DATA:CORRECTION:SIGNAL:READ? 0, 48", "DATA:CORRECTION:SIGNAL:READ? 48, 12",
                               "DATA:CORRECTION:SIGNAL:READ? 66, 6", "DATA:CORRECTION:NOISE:READ? 0, 48"})
        for (const char* pReply : {"", "#", "#10\n"}) {
            auto cUnit = std::make_shared<vnktest::FakeUnit>();
            mcUnit.swap(cUnit);
            mcUnit->reply(pQuery, {pReply});
            EXPECT_FALSE(read(set, set)->isValid()) << pQuery << " " << pReply;
        }
}

TEST_F(Flatten, AReplyThatIsTooLongFailsItsSet) {
    const std::string set = dataSet({}, {});
    mcUnit->reply("DATA:CORRECTION:SIGNAL:READ? 0, 48", {block(set) + "\n"});
    EXPECT_FALSE(read(set, set)->isValid());
}

TEST_F(Flatten, AVectorOfTheWrongIndexIsAnAssertion) {
    std::string set = dataSet(kTwoRows, {{0}, {0}});
    set[48 + 12 + 6 + 1] = 5;
    EXPECT_THROW(read(set), utils::FatalError);
    EXPECT_EQ(mcUnit->miLinks, 0);  // nothing is left behind
}

TEST_F(Flatten, ASetWhoseFarEndNoOffsetReachesIsRefused) {
    std::string header = dataSet({}, {}).substr(0, 48);
    header.replace(4, 4, "\xFF\xFF\xFF\xFF");  // 65535 vectors of 65535 points
    EXPECT_FALSE(read(header)->isValid());
    for (const auto& line : mcUnit->takeJournal())
        EXPECT_EQ(line.find("SIGNAL:READ? 48, 262142"), std::string::npos);
}

TEST_F(Flatten, ATableRowWithoutAFrequencyOrWithAnIndexTooHighIsSkipped) {
    const auto cFlatten = read(dataSet({{0, 0}, {5, 3}, {7, 2}, {9, 1}}, {{0}, {0}}));
    ASSERT_TRUE(cFlatten->isValid());
    ASSERT_EQ(cFlatten->signal().mlTable.size(), 2u);
    EXPECT_EQ(cFlatten->signal().mlTable[0].muVector, 2);  // equal to the count of vectors: kept
    EXPECT_EQ(cFlatten->signal().mlTable[1].muVector, 1);
}

TEST_F(Flatten, ARowWithoutAVectorIsAnAssertionWhenItIsUsed) {
    const auto cFlatten = read(dataSet({{1000, 1}}, {{0}}));
    ASSERT_TRUE(cFlatten->isValid());
    float fValue = 1.0f;
    try {
        cFlatten->flatten(&fValue, 1, 1e6f);
        FAIL();
    } catch (const utils::FatalError& cError) {
        EXPECT_NE(cError.message().find("ASSERT failed <mpClientObject != nullptr>"), std::string::npos);
    }
}

TEST_F(Flatten, AnEmptyTableLeavesMagnitudesAlone) {
    const auto cFlatten = read(dataSet({}, {}));
    ASSERT_TRUE(cFlatten->isValid());
    float fValue = 3.0f;
    EXPECT_TRUE(cFlatten->flatten(&fValue, 1, 1e6f));
    EXPECT_EQ(fValue, 3.0f);
}

TEST(CorrectionRow, IsTheFirstAboveTheFrequencyOrTheLast) {
    const std::vector<_IFBWFlatten::Row> lTable = {{1e6f, 0}, {2e6f, 1}, {3e6f, 2}};
    EXPECT_EQ(chooseRow(lTable, 0.0f).muVector, 0);
    EXPECT_EQ(chooseRow(lTable, 1.5e6f).muVector, 1);
    EXPECT_EQ(chooseRow(lTable, 2e6f).muVector, 2);  // equal takes the row after it
    EXPECT_EQ(chooseRow(lTable, 3e6f).muVector, 2);
    EXPECT_EQ(chooseRow(lTable, 9e9f).muVector, 2);
}

TEST(CorrectionTable, FrequenciesAbove4GHzAreWhole) {
    const uint8_t kRow[] = {0x01, 0x9B, 0xFC, 0xC0, 0, 0};  // 27,000,000 kHz
    const auto lTable = parseFrequencyTable(kRow, 1, 1);
    ASSERT_EQ(lTable.size(), 1u);
    EXPECT_EQ(lTable[0].mfFrequencyHz, 2.7e10f);
}

namespace {

CorrectionVector vectorOf(const std::vector<int32_t>& lPoints) {
    std::string bytes;
    putU16(bytes, 0);
    for (const int32_t iPoint : lPoints)
        putU32(bytes, static_cast<uint32_t>(iPoint));
    return CorrectionVector(reinterpret_cast<const uint8_t*>(bytes.data()),
                            static_cast<uint16_t>(lPoints.size()));
}

std::vector<float> resample(CorrectionVector& cVector, uint32_t uCount) {
    const FloatArray& cCopy = cVector.resampled(uCount);
    EXPECT_EQ(cCopy.getActive(), uCount);
    return {cCopy.getData(), cCopy.getData() + uCount};
}

}  // namespace

TEST(CorrectionVector, IsInterpolatedBetweenItsPoints) {
    // 20 dB of loss is a tenth.
    CorrectionVector cVector = vectorOf({0, 20000000});
    const auto lCopy = resample(cVector, 4);
    EXPECT_FLOAT_EQ(lCopy[0], 1.0f);
    EXPECT_FLOAT_EQ(lCopy[1], 0.55f);
    EXPECT_FLOAT_EQ(lCopy[2], 0.1f);
    // Behind the last point there is nothing to lean on.
    EXPECT_FLOAT_EQ(lCopy[3], 0.1f);
}

TEST(CorrectionVector, NeverReadsPastItsLastPoint) {
    for (uint32_t uPoints : {0u, 1u, 2u, 3u, 7u, 8u, 9u, 4096u})
        for (uint32_t uCount : {1u, 2u, 3u, 8u, 9u, 255u, 256u, 10000u}) {
            CorrectionVector cVector = vectorOf(std::vector<int32_t>(uPoints, 0));
            for (const float fValue : resample(cVector, uCount))
                ASSERT_EQ(fValue, 1.0f) << uPoints << " " << uCount;
        }
}

TEST(CorrectionVector, WithFewerBinsThanPointsTheLastBinTakesItsLowerPoint) {
    CorrectionVector cVector = vectorOf({0, 20000000, 40000000, 60000000});
    const auto lCopy = resample(cVector, 2);
    EXPECT_FLOAT_EQ(lCopy[0], 1.0f);
    EXPECT_FLOAT_EQ(lCopy[1], 0.01f);
}

TEST(CorrectionVector, KeepsItsCopyForACount) {
    CorrectionVector cVector = vectorOf({0, 1});
    const FloatArray* pFirst = &cVector.resampled(16);
    EXPECT_EQ(&cVector.resampled(16), pFirst);
    EXPECT_EQ(cVector.resampled(17).getActive(), 17u);
}

TEST_F(Flatten, AlternateVectorsKeepACopyEachAndANewCountRebuildsIt) {
    const auto cFlatten = read(dataSet(kTwoRows, {{20000000}, {40000000}}));
    ASSERT_TRUE(cFlatten->isValid());
    const auto flattened = [&](uint32_t uCount, float fFrequencyHz) {
        std::vector<float> lValues(uCount, 100.0f);
        EXPECT_TRUE(cFlatten->flatten(lValues.data(), uCount, fFrequencyHz));
        return lValues;
    };
    const FloatArray* pCopies[2] = {};
    for (int i = 0; i < 3; ++i) {
        EXPECT_FLOAT_EQ(flattened(5, 0.5e6f)[4], 10.0f);
        EXPECT_FLOAT_EQ(flattened(5, 9e9f)[4], 1.0f);
        for (size_t u = 0; u < 2; ++u) {
            const FloatArray* pCopy = &cFlatten->signal().mlVectors[u]->resampled(5);
            EXPECT_TRUE(i == 0 || pCopy == pCopies[u]);
            pCopies[u] = pCopy;
        }
    }
    const auto lWider = flattened(9, 0.5e6f);
    EXPECT_FLOAT_EQ(lWider[8], 10.0f);
    EXPECT_EQ(cFlatten->signal().mlVectors[0]->resampled(9).getActive(), 9u);
}
