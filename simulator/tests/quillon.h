#pragma once

#include <cmath>

#include "simulator/tests/fixture.h"

namespace simtest {

/// A unit of the second family.
class QuillonTest : public UnitTest {
 protected:
    QuillonTest() { mfCounts = 32768; }
    void SetUp() override { mcOptions.pace = vnksim::Pace::flatOut; }
    void startQuillon(const vnksim::Scene& scene = {}, const std::string& model = "Quillon") {
        startUnit(scene, model);
    }
    void set(const std::string& fault) { ASSERT_TRUE(mpUnit->faults().apply(fault)) << fault; }
    static std::string entry(double centreHz, unsigned decimation, unsigned samples) {
        return ":sweep:entry:freq:cent " + std::to_string(std::llround(centreHz)) + ";:sweep:entry:dec " +
               std::to_string(decimation) + ";:sweep:entry:spp " + std::to_string(samples);
    }
    /// Level in dBm of a complex amplitude in full scales: one full scale is the reference level.
    static double level(double amplitude, double reference) { return 20 * std::log10(amplitude) + reference; }
    static double reference(const WirePacket& context) {
        return static_cast<int16_t>(context.word(40) & 0xFFFF) / 128.0;
    }
    /// The frequency that a context with all its fields tells.
    static double centreHz(const WirePacket& context) {
        return static_cast<double>(context.longWord(32)) / 1048576;
    }
    static bool isTuning(const WirePacket& packet) { return packet.type() == 4; }
    /// Ends what runs; a new data connection gets nothing of it.
    void stopAndReconnect() {
        mpScpi->send(":TRACe:STReam:STOP; :SYSTEM:FLUSH");
        ASSERT_TRUE(mpScpi->ask("*IDN?").has_value());
        mpData.reset();
        ASSERT_TRUE(vnktest::waitUntil([this] { return mpUnit->state().dataConnections == 0; }));
        mpData = std::make_unique<Client>(mcOptions.address, vnksim::kDataPort);
        ASSERT_TRUE(vnktest::waitUntil([this] { return mpUnit->state().dataConnections == 1; }));
    }

    static constexpr double kRate = 122.88e6;
    static constexpr uint32_t kFields = 1u << 29 | 1u << 27 | 1u << 24 | 1u << 21 | 1u << 15;
};

}  // namespace simtest
