#pragma once

#include "support/receiverfixture.h"
#include "zelvar/devicetypes.h"
#include "zelvar/zelvarreceiver.h"

class ReceiverTest : public vnktest::ReceiverFixture<ZelvarRawDeviceType> {
 protected:
    ReceiverTest() { arrange("ZV350-C"); }
};

/// A packet of the dialect: header, then the payload's words.
inline std::string packet(uint32_t uStreamID, const std::vector<uint32_t>& lPayload) {
    std::string bytes;
    const auto put = [&bytes](uint32_t uValue) {
        for (int iShift = 24; iShift >= 0; iShift -= 8)
            bytes += static_cast<char>(uValue >> iShift & 0xFF);
    };
    put(0x10000000u | static_cast<uint32_t>(5 + lPayload.size()));
    put(uStreamID);
    put(1700000000);
    put(0);
    put(0);
    for (const uint32_t uWord : lPayload)
        put(uWord);
    return bytes;
}
