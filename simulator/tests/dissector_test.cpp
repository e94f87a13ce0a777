#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "simulator/tests/fixture.h"

namespace simtest {
namespace {

void put16(std::string& bytes, size_t value) {
    bytes += static_cast<char>(value >> 8);
    bytes += static_cast<char>(value);
}

void putLittle32(std::string& bytes, size_t value) {
    for (unsigned shift = 0; shift < 32; shift += 8) {
        bytes += static_cast<char>(value >> shift);
    }
}

/// Each packet as one UDP datagram to the port that VITA-49 has, in a capture file of raw IPv4.
std::string captureFile(const std::vector<WirePacket>& packets) {
    std::string file;
    putLittle32(file, 0xA1B2C3D4);
    putLittle32(file, 4u << 16 | 2u);
    putLittle32(file, 0);
    putLittle32(file, 0);
    putLittle32(file, 65535);
    putLittle32(file, 101);
    for (const WirePacket& packet : packets) {
        const size_t size = packet.bytes.size();
        std::string datagram;
        put16(datagram, 0x4500);
        put16(datagram, size + 28);
        put16(datagram, 0);
        put16(datagram, 0);
        put16(datagram, 64 << 8 | 17);
        put16(datagram, 0);
        datagram += std::string("\x7F\0\0\x01\x7F\0\0\x01", 8);
        put16(datagram, 50000);
        put16(datagram, 4991);
        put16(datagram, size + 8);
        put16(datagram, 0);
        datagram.append(packet.bytes.begin(), packet.bytes.end());
        putLittle32(file, 0);
        putLittle32(file, 0);
        putLittle32(file, datagram.size());
        putLittle32(file, datagram.size());
        file += datagram;
    }
    return file;
}

const std::vector<const char*> kFields = {"vrt.type",    "vrt.tflag",         "vrt.tsi",
                                          "vrt.tsf",     "vrt.seq",           "vrt.len",
                                          "vrt.sid",     "vrt.ts_int",        "vrt.ts_frac_picosecond",
                                          "vrt.trailer", "vrt.valid_en",      "vrt.valid",
                                          "vrt.inv_en",  "vrt.inv",           "vrt.overrng_en",
                                          "vrt.overrng", "vrt.sampleloss_en", "vrt.sampleloss"};

std::vector<std::string> dissect(const std::string& path, const std::vector<const char*>& fields) {
    std::string command = "tshark -n -r '" + path + "' -T fields -E separator=,";
    for (const char* field : fields) {
        command += std::string(" -e ") + field;
    }
    std::vector<std::string> lines;
    FILE* pipe = ::popen((command + " 2>/dev/null").c_str(), "r");
    char buffer[4096];
    while (pipe != nullptr && std::fgets(buffer, sizeof buffer, pipe) != nullptr) {
        lines.emplace_back(buffer);
        lines.back().pop_back();
    }
    if (pipe != nullptr) {
        ::pclose(pipe);
    }
    return lines;
}

/// The same fields by the tests' own reader.
std::string expected(const WirePacket& packet) {
    std::ostringstream text;
    char hex[16];
    std::snprintf(hex, sizeof hex, "0x%08x", packet.stream());
    // The dissector shows no trailer flag in a context packet.
    const std::string flag = packet.type() == 4 ? "" : packet.hasTrailer() ? "1" : "0";
    text << packet.type() << ',' << flag << ',' << packet.tsi() << ',' << packet.tsf() << ','
         << packet.counter() << ',' << packet.words() << ',' << hex << ',' << packet.seconds() << ','
         << packet.picoseconds();
    if (!packet.hasTrailer()) {
        return text.str() + ",,,,,,,,,";
    }
    std::snprintf(hex, sizeof hex, "0x%08x", packet.trailer());
    text << ',' << hex;
    for (unsigned bit : {30u, 18u, 26u, 14u, 25u, 13u, 24u, 12u}) {
        text << ',' << (packet.trailer() >> bit & 1u);
    }
    return text.str();
}

/// Captures of the unit, one after another, with their contexts.
class Dissector : public UnitTest {
 protected:
    void SetUp() override {
        if (std::system("tshark --version >/dev/null 2>&1") != 0) {
            GTEST_SKIP() << "tshark is not installed";
        }
        mcOptions.pace = vnksim::Pace::flatOut;
    }
    void take(const std::string& setup) {
        mpScpi->send(":TRACe:SPPacket 256;FREQ:CENT 100000000 Hz;" + setup + ";:TRACe:STReam:STARt 77");
        std::vector<WirePacket> contexts;
        const auto data = takeData(*mpData, 20, &contexts);
        mpScpi->send(":TRACe:STReam:STOP; :SYSTEM:FLUSH");
        mlTaken.insert(mlTaken.end(), contexts.begin(), contexts.end());
        mlTaken.insert(mlTaken.end(), data.begin(), data.end());
        EXPECT_TRUE(mpScpi->ask("*IDN?").has_value());
        while (!mpData->quiet(100)) {
            nextPacket(*mpData);
        }
    }
    std::vector<std::string> linesOf(const std::vector<const char*>& fields) {
        const auto path =
            std::filesystem::temp_directory_path() / ("vnk-packets-" + std::to_string(::getpid()) + ".pcap");
        std::ofstream(path, std::ios::binary) << captureFile(mlTaken);
        const auto lines = dissect(path.string(), fields);
        std::filesystem::remove(path);
        return lines;
    }
    void compare() {
        const auto lines = linesOf(kFields);
        ASSERT_EQ(lines.size(), mlTaken.size());
        for (size_t i = 0; i < lines.size(); ++i) {
            EXPECT_EQ(lines[i], expected(mlTaken[i])) << i;
        }
    }

    std::vector<WirePacket> mlTaken;
};

TEST_F(Dissector, packetsReadTheSameInAnIndependentDissector) {
    // Some packets clip, some carry flags that faults have set.
    startUnit(vnksim::Scene().tone(100.1e6, 0).noise(-120));
    take(":SENSE:DEC 64");
    take(":SENSe:DECimation OFF");
    mpUnit->faults().apply("spectralInversion");
    mpUnit->faults().apply("trailerClear," + std::to_string(vnksim::trailer::kValidData));
    take(":SENSE:DEC 8");
    ASSERT_EQ(mlTaken.size(), 3u * 23u);
    compare();
}

TEST_F(Dissector, packetsOfTheSecondFamilyDoToo) {
    startUnit(vnksim::Scene().tone(100.1e6, 3).noise(-120), "Quillon");
    take(":SENSE:DEC 64");
    take(":SENSE:DEC 1;:DEBUG:REFERENCE:LEVEL 10");
    mpUnit->faults().apply("spectralInversion");
    take(":SENSE:DEC 8;:DEBUG:REFERENCE:LEVEL -40");
    ASSERT_EQ(mlTaken.size(), 3u * 22u);
    compare();
    mlTaken.clear();
    mpUnit->faults().apply("contextTsm");
    take(":SENSE:DEC 2");
    const auto lines = linesOf({"vrt.type", "vrt.tsmflag"});
    ASSERT_EQ(lines.size(), 22u);
    EXPECT_EQ(lines[0], "4,1");
    // The dissector shows the bit of contexts alone.
    EXPECT_EQ(lines[1], "5,");
}

}  // namespace
}  // namespace simtest
