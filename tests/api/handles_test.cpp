#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "api/text.h"

namespace {

struct Call {
    const char* mpName;
    int32_t miUnknown;      // for a handle that names nothing
    int32_t miStream;       // for an IQ stream that was never attached
    std::function<int32_t(uint32_t)> call;
};

/// Every export that takes a handle by value.
std::vector<Call> calls() {
    return {
        {"vnkResetDeviceConnection", -35, -35, [](uint32_t h) { return vnkResetDeviceConnection(h); }},
        {"vnkSendSCPI", -35, -35, [](uint32_t h) { return vnkSendSCPI(h, "*CLS"); }},
        {"vnkQuerySCPI", -35, -35,
         [](uint32_t h) {
             Text cReply("old");
             const int32_t iStatus = vnkQuerySCPI(h, "*IDN?", cReply.address());
             EXPECT_EQ(cReply.str(), "old");
             return iStatus;
         }},
        {"vnkGetParameterInfo", -9, 0,
         [](uint32_t h) {
             Text cText;
             return vnkGetParameterInfo(h, cText.address());
         }},
        {"vnkGetParameters", -9, 0,
         [](uint32_t h) {
             Text cText;
             return vnkGetParameters(h, cText.address());
         }},
        {"vnkSetParameters", -9, 0,
         [](uint32_t h) {
             Text cText("{\"RefdBm\":-20.0}");
             return vnkSetParameters(h, cText.address());
         }},
        {"vnkAttachStreamToDevice, as stream", -8, -8, [](uint32_t h) { return vnkAttachStreamToDevice(h, h); }},
        {"vnkDetachStream", -38, -44, [](uint32_t h) { return vnkDetachStream(h); }},
        {"vnkFlushStream", -38, 0, [](uint32_t h) { return vnkFlushStream(h); }},
        {"vnkIsAttached", -38, 5, [](uint32_t h) { return vnkIsAttached(h); }},
        {"vnkAllowDiscarding", -38, 0, [](uint32_t h) { return vnkAllowDiscarding(h, 1); }},
        {"vnkGetNextIQ", -17, 3,
         [](uint32_t h) {
             vnkIQRecord* pRecord = nullptr;
             const int32_t iStatus = vnkGetNextIQ(h, &pRecord, 0);
             EXPECT_EQ(pRecord, nullptr);
             return iStatus;
         }},
        {"vnkClose", -21, 0, [](uint32_t h) { return vnkClose(&h); }},
    };
}

}  // namespace

TEST(Handles, EveryExportTellsAHandleThatNamesNothing) {
    uint32_t uClosed = 0;
    ASSERT_EQ(vnkCreateIQStream(&uClosed, 1e6f, 1e5f, -30.0f), 0);
    uint32_t uHandle = uClosed;
    ASSERT_EQ(vnkClose(&uHandle), 0);
    for (const Call& cCall : calls()) {
        for (const uint32_t uBad : {uClosed, 0x80000001u, VNK_INVALID_HANDLE}) {
            const bool bInvalidClose = uBad == VNK_INVALID_HANDLE && std::string(cCall.mpName) == "vnkClose";
            EXPECT_EQ(cCall.call(uBad), bInvalidClose ? -8 : cCall.miUnknown) << cCall.mpName << " " << uBad;
        }
    }
}

TEST(Handles, EveryExportTellsAStreamWhereItWantsAnotherKind) {
    for (const Call& cCall : calls()) {
        uint32_t uStream = 0;
        ASSERT_EQ(vnkCreateIQStream(&uStream, 1e6f, 1e5f, -30.0f), 0);
        EXPECT_EQ(cCall.call(uStream), cCall.miStream) << cCall.mpName;
        vnkClose(&uStream);
    }
}

TEST(Handles, WithoutTheInterfaceEveryExportGivesMinusTwo) {
    InterfaceDown cDown;
    for (const Call& cCall : calls())
        EXPECT_EQ(cCall.call(5), -2) << cCall.mpName;
    uint32_t uHandle = 77;
    float fValue = 0;
    uint8_t uFlag = 0;
    vnkIQRecord* pRecord = nullptr;
    EXPECT_EQ(vnkCreateIQStream(&uHandle, 1, 1, 1), -2);
    EXPECT_EQ(uHandle, 77u);
    EXPECT_EQ(vnkAddDeviceAddress("127.0.0.1"), -2);
    EXPECT_EQ(vnkEnumerateDevices(&uHandle, 0), -2);
    EXPECT_EQ(vnkExamineDevice(0, nullptr), -2);
    EXPECT_EQ(vnkOpenDevice(0, nullptr), -2);
    EXPECT_EQ(vnkFreeIQ(&pRecord), -2);
    EXPECT_EQ(vnkAddFCentre(nullptr, 1), -2);
    EXPECT_EQ(vnkAddFMinMax(nullptr, 1, 1), -2);
    EXPECT_EQ(vnkAddTextParameter(nullptr, nullptr, nullptr), -2);
    EXPECT_EQ(vnkReadFCentre(nullptr, &fValue), -2);
    EXPECT_EQ(vnkReadTextParameter(nullptr, nullptr, nullptr), -2);
    EXPECT_EQ(vnkReadBooleanParameter(nullptr, nullptr, &uFlag), -2);
    EXPECT_EQ(vnkReadParameterInfoElement(nullptr, nullptr, nullptr, nullptr), -2);
    EXPECT_EQ(vnkReadParameterAsJSON(nullptr, nullptr, nullptr), -2);
}

TEST(Handles, ZeroIsAnOrdinaryNumberThatNamesNothingUnlessDrawn) {
    EXPECT_EQ(vnkIsAttached(0), -38);
}

TEST(NullArguments, AreToldApart) {
    uint32_t uStream = 0;
    EXPECT_EQ(vnkCreateIQStream(nullptr, 1e6f, 1e5f, -30.0f), -4);
    ASSERT_EQ(vnkCreateIQStream(&uStream, 1e6f, 1e5f, -30.0f), 0);
    EXPECT_EQ(vnkGetNextIQ(uStream, nullptr, 0), -4);
    EXPECT_EQ(vnkFreeIQ(nullptr), -4);
    vnkIQRecord* pRecord = nullptr;
    EXPECT_EQ(vnkFreeIQ(&pRecord), -20);
    EXPECT_EQ(vnkOpenDevice(0, nullptr), -4);
    EXPECT_EQ(vnkExamineDevice(0, nullptr), -4);
    EXPECT_EQ(vnkEnumerateDevices(nullptr, 0), 0);
    EXPECT_EQ(vnkClose(&uStream), 0);
}

TEST(NullArguments, NullTextsAreEmptyTexts) {
    EXPECT_EQ(vnkSendSCPI(1, nullptr), -35);
    EXPECT_EQ(vnkQuerySCPI(1, nullptr, nullptr), -35);
    { InterfaceDown cDown; }   // forget the addresses of other tests
    EXPECT_EQ(vnkAddDeviceAddress(nullptr), 0);
    EXPECT_EQ(vnkAddDeviceAddress(""), -3);
    { InterfaceDown cDown; }
}

TEST(FreeIQ, ARecordOfTheCallersOwnMakingIsFreedWithItsSamples) {
    auto* pRecord = static_cast<vnkIQRecord*>(std::calloc(1, sizeof(vnkIQRecord)));
    pRecord->samples = static_cast<float*>(std::calloc(8, sizeof(float)));
    pRecord->extras = strdup("{}");
    EXPECT_EQ(vnkFreeIQ(&pRecord), 0);
    EXPECT_EQ(pRecord, nullptr);
    EXPECT_EQ(vnkFreeIQ(&pRecord), -20);
}
