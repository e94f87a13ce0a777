#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "simulator/tests/minireader.h"
#include "simulator/unit.h"
#include "support/loopback.h"

namespace simtest {

using namespace std::chrono_literals;

/// A unit on its own loopback address, with a client on both ports.
class UnitTest : public testing::Test {
 protected:
    void startUnit(const vnksim::Scene& scene = {}, const std::string& model = "ZV150-C") {
        mcOptions.address = vnktest::uniqueLoopback();
        mcOptions.model = model;
        mpUnit = std::make_unique<vnksim::Unit>(mcOptions, scene);
        mpUnit->start();
        connectClients();
    }
    void connectClients() {
        mpScpi = std::make_unique<Client>(mcOptions.address, vnksim::kScpiPort);
        mpData = std::make_unique<Client>(mcOptions.address, vnksim::kDataPort);
        ASSERT_TRUE(mpScpi->connected());
        ASSERT_TRUE(mpData->connected());
        ASSERT_TRUE(vnktest::waitUntil([this] { return mpUnit->state().dataConnections > 0; }));
    }
    /// Runs a finite capture of one packet after another and returns its samples, joined.
    std::vector<std::complex<float>> captureIQ(const std::string& setup, size_t packets) {
        mpScpi->send(":sweep:entry:delete all;:sweep:entry:new;:sweep:list:iter 1;" + setup +
                     ";:sweep:entry:ppb " + std::to_string(packets) +
                     ";:sweep:entry:save;:SWEEP:LIST:START 7");
        std::vector<std::complex<float>> samples;
        mlPackets = takeData(*mpData, packets);
        for (const WirePacket& packet : mlPackets) {
            const auto part = packet.iq(mfCounts);
            samples.insert(samples.end(), part.begin(), part.end());
        }
        EXPECT_EQ(mpScpi->ask("SYST:ERR?").value_or(""), "0,\"No error\"");
        EXPECT_TRUE(mpUnit->waitForMode("BLOCK", 10s));
        return samples;
    }
    std::vector<float> captureReal(const std::string& setup, size_t packets) {
        captureIQ(setup, packets);
        std::vector<float> samples;
        for (const WirePacket& packet : mlPackets) {
            const auto part = packet.items();
            samples.insert(samples.end(), part.begin(), part.end());
        }
        return samples;
    }
    /// Level in dBm of a complex amplitude, at the unit's reference level.
    static double dbm(double amplitude, double reference = -20) {
        return 20 * std::log10(amplitude) + reference + 12.7678;
    }

    float mfCounts = 8192;  ///< of full scale
    vnksim::UnitOptions mcOptions;
    std::unique_ptr<vnksim::Unit> mpUnit;
    std::unique_ptr<Client> mpScpi, mpData;
    std::vector<WirePacket> mlPackets;
};

}  // namespace simtest
