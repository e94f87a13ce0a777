#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "api/text.h"

TEST(AddParameter, MakesATextFromNothing) {
    Text cText;
    EXPECT_EQ(vnkAddFCentre(cText.address(), 2.45e9f), 0);
    EXPECT_EQ(cText.str(), "{\"FCentreHz\":2449999872.000000}");
}

TEST(AddParameter, KeepsOneKeyWithTheLastValue) {
    Text cText;
    EXPECT_EQ(vnkAddFCentre(cText.address(), 1e6f), 0);
    EXPECT_EQ(vnkAddFCentre(cText.address(), 2e6f), 0);
    EXPECT_EQ(cText.str(), "{\"FCentreHz\":2000000.000000}");
}

TEST(AddParameter, EachFunctionWritesItsKey) {
    Text cText;
    EXPECT_EQ(vnkAddIFBWHz(cText.address(), 1e5f), 0);
    EXPECT_EQ(vnkAddFMinMax(cText.address(), 1.0f, 2.0f), 0);
    EXPECT_EQ(vnkAddRBWHz(cText.address(), 3.0f), 0);
    EXPECT_EQ(vnkAddWindowType(cText.address(), "hann"), 0);
    EXPECT_EQ(vnkAddRefLeveldBm(cText.address(), -30.0f), 0);
    EXPECT_EQ(vnkAddIQCaptureSec(cText.address(), 0.5f), 0);
    EXPECT_EQ(vnkAddNumericParameter(cText.address(), "n", 4.5f), 0);
    EXPECT_EQ(vnkAddTextParameter(cText.address(), "t", "world"), 0);
    EXPECT_EQ(vnkAddBooleanParameter(cText.address(), "b", 1), 0);
    EXPECT_EQ(cText.str(),
              "{\"FMaxHz\":2.000000,\"FMinHz\":1.000000,\"IFBWHz\":100000.000000,\"RBWHz\":3.000000,"
              "\"RefdBm\":-30.000000,\"WindowFn\":\"hann\",\"b\":true,\"captureSec\":0.500000,"
              "\"n\":4.500000,\"t\":\"world\"}");
    float fMinimum = 0, fMaximum = 0, fValue = 0;
    EXPECT_EQ(vnkReadFMinMax(cText.address(), &fMinimum, &fMaximum), 0);
    EXPECT_EQ(fMinimum, 1.0f);
    EXPECT_EQ(fMaximum, 2.0f);
    EXPECT_EQ(vnkReadRefLeveldBm(cText.address(), &fValue), 0);
    EXPECT_EQ(fValue, -30.0f);
    Text cWindow;
    EXPECT_EQ(vnkReadWindowType(cText.address(), cWindow.address()), 0);
    EXPECT_EQ(cWindow.str(), "hann");
}

TEST(AddParameter, ANullAddressIsRefused) {
    EXPECT_EQ(vnkAddFCentre(nullptr, 1.0f), -4);
    EXPECT_EQ(vnkAddFMinMax(nullptr, 1.0f, 2.0f), -4);
    EXPECT_EQ(vnkAddWindowType(nullptr, "hann"), -4);
    EXPECT_EQ(vnkAddBooleanParameter(nullptr, "a", 1), -4);
}

TEST(AddParameter, NullTextsCountAsEmpty) {
    Text cText;
    EXPECT_EQ(vnkAddTextParameter(cText.address(), nullptr, nullptr), 0);
    EXPECT_EQ(cText.str(), "{\"\":\"\"}");
    EXPECT_EQ(vnkAddNumericParameter(cText.address(), nullptr, 1.0f), 0);
    EXPECT_EQ(vnkAddWindowType(cText.address(), nullptr), 0);
}

TEST(AddParameter, TenMegabytesOfTextArriveWhole) {
    const std::string value(10 << 20, 'x');
    Text cText;
    EXPECT_EQ(vnkAddTextParameter(cText.address(), "k", value.c_str()), 0);
    Text cRead;
    EXPECT_EQ(vnkReadTextParameter(cText.address(), "k", cRead.address()), 0);
    EXPECT_TRUE(cRead.str() == value);
}

TEST(ReadNumber, AcceptsEveryKindOfNumber) {
    Text cText("{\"FCentreHz\":5,\"big\":18446744073709551615,\"SampleRateHz\":1.5,\"four\":4294967295}");
    float fValue = 0;
    EXPECT_EQ(vnkReadFCentre(cText.address(), &fValue), 0);
    EXPECT_EQ(fValue, 5.0f);
    EXPECT_EQ(vnkReadNumericParameter(cText.address(), "big", &fValue), 0);
    EXPECT_EQ(fValue, 18446744073709551616.0f);
    EXPECT_EQ(vnkReadNumericParameter(cText.address(), "four", &fValue), 0);
    EXPECT_EQ(fValue, 4294967296.0f);
    EXPECT_EQ(vnkReadSampleRateHz(cText.address(), &fValue), 0);
    EXPECT_EQ(fValue, 1.5f);
}

TEST(ReadNumber, LeavesTheOutputAloneOtherwise) {
    Text cText("{\"t\":\"x\",\"b\":true,\"a\":[1],\"n\":-5}");
    float fValue = 7.0f;
    for (const char* pKey : {"t", "b", "a", "n", "missing"})
        EXPECT_EQ(vnkReadNumericParameter(cText.address(), pKey, &fValue), -13) << pKey;
    EXPECT_EQ(fValue, 7.0f);
    EXPECT_EQ(vnkReadNumericParameter(nullptr, "t", &fValue), -4);
    EXPECT_EQ(vnkReadNumericParameter(cText.address(), "t", nullptr), -4);
    Text cNull;
    EXPECT_EQ(vnkReadIFBWHz(cNull.address(), &fValue), -13);
    EXPECT_EQ(vnkReadRBWHz(cNull.address(), &fValue), -13);
}

TEST(ReadNumber, TextsThatOnlyACarelessConversionTakesNeverCrash) {
    for (const char* pValue : {"nan.", "inf", "nan(e)", "0x1.8p3", "1e400", "1e-40", "-", ".", "e", "--1.0"}) {
        Text cText(std::string("{\"a\":") + pValue + "}");
        float fValue = 7.0f;
        const int32_t iStatus = vnkReadNumericParameter(cText.address(), "a", &fValue);
        EXPECT_TRUE(iStatus == 0 || iStatus == -13) << pValue;
    }
}

TEST(ReadText, ReadsTextsAndJoinsArrays) {
    Text cText("{\"t\":\"world\",\"n\":5,\"a\":[1,2,3],\"s\":[\"x\",\"y\"]}");
    Text cValue("old");
    EXPECT_EQ(vnkReadTextParameter(cText.address(), "t", cValue.address()), 0);
    EXPECT_EQ(cValue.str(), "world");
    EXPECT_EQ(vnkReadTextParameter(cText.address(), "a", cValue.address()), 0);
    EXPECT_EQ(cValue.str(), "1,2,3");
    EXPECT_EQ(vnkReadTextParameter(cText.address(), "n", cValue.address()), -13);
    EXPECT_TRUE(cValue.isNull());
    EXPECT_EQ(vnkReadTextParameter(nullptr, "t", cValue.address()), -4);
    EXPECT_EQ(vnkReadTextParameter(cText.address(), "t", nullptr), -4);
}

TEST(ReadBoolean, TakesNothingButABoolean) {
    Text cText("{\"a\":1,\"t\":true,\"f\":false}");
    uint8_t uValue = 9;
    EXPECT_EQ(vnkReadBooleanParameter(cText.address(), "a", &uValue), -13);
    EXPECT_EQ(uValue, 9);
    EXPECT_EQ(vnkReadBooleanParameter(cText.address(), "t", &uValue), 0);
    EXPECT_EQ(uValue, 1);
    EXPECT_EQ(vnkReadBooleanParameter(cText.address(), "f", &uValue), 0);
    EXPECT_EQ(uValue, 0);
    EXPECT_EQ(vnkReadBooleanParameter(nullptr, "t", &uValue), -4);
    EXPECT_EQ(vnkReadBooleanParameter(cText.address(), "t", nullptr), -4);
}

TEST(SchemaReaders, ReadTheNestedFormOnly) {
    Text cSchema("{\"p\":{\"description\":\"d\",\"max\":2.5,\"min\":1},\"q\":\"<plain>\"}");
    float fValue = 0;
    EXPECT_EQ(vnkReadParameterInfoElement(cSchema.address(), "p", "max", &fValue), 0);
    EXPECT_EQ(fValue, 2.5f);
    EXPECT_EQ(vnkReadParameterInfoElement(cSchema.address(), "p", "min", &fValue), 0);
    EXPECT_EQ(fValue, 1.0f);
    EXPECT_EQ(vnkReadParameterInfoElement(cSchema.address(), "p", "default", &fValue), -13);
    EXPECT_EQ(vnkReadParameterInfoElement(cSchema.address(), "p", "description", &fValue), -13);
    EXPECT_EQ(vnkReadParameterInfoElement(cSchema.address(), "q", "max", &fValue), -13);
    EXPECT_EQ(vnkReadParameterInfoElement(nullptr, "p", "max", &fValue), -13);
    Text cJSON("old");
    EXPECT_EQ(vnkReadParameterAsJSON(cSchema.address(), "p", cJSON.address()), 0);
    EXPECT_EQ(cJSON.str(), "{\r\n\t\"description\":\"d\",\r\n\t\"max\":2.500000,\r\n\t\"min\":1\r\n}");
    EXPECT_EQ(vnkReadParameterAsJSON(cSchema.address(), "q", cJSON.address()), -13);
    EXPECT_TRUE(cJSON.isNull());
    EXPECT_EQ(vnkReadParameterAsJSON(cSchema.address(), "p", nullptr), -4);
}

namespace {

class StreamParameters : public testing::Test {
 protected:
    void SetUp() override { ASSERT_EQ(vnkCreateIQStream(&muStream, 98.1e6f, 2e5f, -30.0f), 0); }
    void TearDown() override {
        vnkClose(&muStream);
        while (vnkGetNextStatus() != 0) {
        }
        Text::take(vnkGetDetailedStatus());
    }
    int32_t set(const std::string& text) {
        Text cText(text);
        const int32_t iStatus = vnkSetParameters(muStream, cText.address());
        EXPECT_TRUE(cText.isNull()) << "a parameter text is consumed";
        return iStatus;
    }
    float number(const char* pKey) {
        Text cText;
        EXPECT_EQ(vnkGetParameters(muStream, cText.address()), 0);
        float fValue = NAN;
        vnkReadNumericParameter(cText.address(), pKey, &fValue);
        return fValue;
    }
    uint32_t muStream = 0;
};

}  // namespace

TEST_F(StreamParameters, AreReadBackAsTheyWereGiven) {
    EXPECT_EQ(number("FCentreHz"), 98.1e6f);
    EXPECT_EQ(number("IFBWHz"), 2e5f);
    EXPECT_EQ(set("{\"FCentreHz\":1.0e8,\"captureSec\":2}"), 0);
    EXPECT_EQ(number("FCentreHz"), 1e8f);
    EXPECT_EQ(number("captureSec"), 2.0f);
}

TEST_F(StreamParameters, AnUnknownKeyIsTextStatusAndRefusalOfTheWhole) {
    EXPECT_EQ(set("{\"FCentreHz\":1.0e8,\"nope\":1,\"none\":2}"), -34);
    EXPECT_EQ(vnkGetNextStatus(), -33);
    EXPECT_EQ(vnkGetNextStatus(), -33);
    EXPECT_EQ(vnkGetNextStatus(), 0);
    EXPECT_EQ(number("FCentreHz"), 98.1e6f);
}

TEST_F(StreamParameters, BufferLimitsAreChecked) {
    EXPECT_EQ(set("{\"bufferFrames\":100000,\"bufferSec\":1000.0}"), 0);
    EXPECT_EQ(set("{\"bufferFrames\":100001}"), -34);
    EXPECT_EQ(vnkGetNextStatus(), -51);
    EXPECT_EQ(set("{\"bufferFrames\":0}"), -34);
    EXPECT_EQ(set("{\"bufferSec\":1000.1}"), -34);
    EXPECT_EQ(set("{\"bufferSec\":nan.}"), -34);
    EXPECT_EQ(set("{\"bufferFrames\":5.4}"), 0);
    EXPECT_EQ(number("bufferFrames"), 5.0f);
    for (const char* pText : {"{\"bufferFrames\":4294967296.0}", "{\"bufferFrames\":-1.0}", "{\"bufferFrames\":nan.}",
                              "{\"bufferFrames\":inf.e}", "{\"bufferFrames\":18446744073709551615}"})
        EXPECT_EQ(set(pText), -34) << pText;
    EXPECT_EQ(number("bufferFrames"), 5.0f);
}

TEST_F(StreamParameters, ALoopingFlagOfAnotherTypeIsUnknown) {
    EXPECT_EQ(set("{\"LoopingFlag\":true}"), 0);
    EXPECT_EQ(set("{\"LoopingFlag\":1}"), -34);
    EXPECT_EQ(vnkGetNextStatus(), -33);
}

TEST_F(StreamParameters, TheSchemaNamesThem) {
    Text cSchema;
    EXPECT_EQ(vnkGetParameterInfo(muStream, cSchema.address()), 0);
    for (const char* pKey : {"FCentreHz", "IFBWHz", "RefdBm", "captureSec", "adaptStep", "filename"})
        EXPECT_NE(cSchema.str().find(std::string("\"") + pKey + "\":"), std::string::npos) << pKey;
    EXPECT_EQ(cSchema.str().find("LoopingFlag"), std::string::npos);
}

TEST(EntityParameters, AnUnknownHandleGivesMinusNineAndConsumesTheText) {
    Text cText("{\"a\":1}");
    EXPECT_EQ(vnkSetParameters(0x7654321, cText.address()), -9);
    EXPECT_TRUE(cText.isNull());
    EXPECT_EQ(vnkSetParameters(0x7654321, nullptr), -4);
    Text cOut("old");
    EXPECT_EQ(vnkGetParameters(0x7654321, cOut.address()), -9);
    EXPECT_TRUE(cOut.isNull());
    EXPECT_EQ(vnkGetParameterInfo(0x7654321, cOut.address()), -9);
    EXPECT_EQ(vnkGetParameters(0x7654321, nullptr), -4);
    EXPECT_EQ(vnkGetParameterInfo(0x7654321, nullptr), -4);
}

TEST(EntityParameters, HostileTextsEndInAStatus) {
    uint32_t uStream = 0;
    ASSERT_EQ(vnkCreateIQStream(&uStream, 1e6f, 1e5f, -30.0f), 0);
    const std::string deep(100000, '{');
    for (const std::string& text :
         {std::string("{"), std::string("}"), std::string("[[[["), std::string("a"), std::string(":"),
          std::string("{\"a\":{\"a\":{\"a\":"), std::string("\"\"\"\""), std::string("\x80\xff:\x01"), deep,
          std::string("{\"FCentreHz\":nan.,\"captureSec\":1e30,\"UserCaldB\":1e30}")}) {
        Text cText(text);
        const int32_t iStatus = vnkSetParameters(uStream, cText.address());
        EXPECT_TRUE(iStatus == 0 || iStatus == -33 || iStatus == -34) << iStatus;
        while (vnkGetNextStatus() != 0) {
        }
    }
    EXPECT_EQ(vnkClose(&uStream), 0);
}
