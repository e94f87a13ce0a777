#include "simulator/commandtree.h"
#include "simulator/tests/fixture.h"

namespace simtest {
namespace {

using vnksim::CommandTree;
using Commands = UnitTest;

TEST(CommandTree, takesShortAndLongFormsInAnyCaseAndNothingBetween) {
    CommandTree tree;
    const int centre = tree.add("FREQuency:CENTer|SENSe:FREQuency:CENTer");
    const int clear = tree.add("*CLS");
    for (const char* text : {"FREQ:CENT", ":FREQ:CENT", "freq:cent", "Frequency:Cent", "FREQUENCY:CENTER",
                             "sense:freq:center", ":SENS:FREQUENCY:CENT"}) {
        EXPECT_EQ(tree.find(text), centre) << text;
    }
    EXPECT_EQ(tree.find("*cls"), clear);
    for (const char* text :
         {"FRE:CENT", "FREQU:CENT", "FREQ", "FREQ:CENT:X", "FREQ:CENTE", "", ":", "CENT"}) {
        EXPECT_EQ(tree.find(text), CommandTree::kNone) << text;
    }
}

TEST(CommandTree, splitsHeaderQueryMarkAndParameters) {
    const auto command = vnksim::parseCommand(" SYST:LOCK:REQ? ACQ ");
    EXPECT_EQ(command.header, "SYST:LOCK:REQ");
    EXPECT_TRUE(command.query);
    EXPECT_EQ(command.parameters, "ACQ");
}

TEST_F(Commands, identityHasFourFields) {
    mcOptions.serial = "S-42";
    mcOptions.firmware = "9.8.7";
    startUnit({}, "ZV350-B");
    EXPECT_EQ(mpScpi->ask("*IDN?"), "Varnik,ZV350-B 1.0,S-42,9.8.7");
}

TEST_F(Commands, continuousSetupIsTakenInOneLine) {
    startUnit();
    EXPECT_EQ(mpScpi->errorAfter("INPUT:MODE SH;:TRACe:SPPacket 12192;:SENSE:DEC 1024;FREQ:CENT 98100000 Hz;"
                                 ":INPut:ATTenuator:VARiable 10;:INPut:GAIN 1 1;:INPut:GAIN 2 0"),
              "0,\"No error\"");
    const auto state = mpUnit->state();
    EXPECT_FALSE(state.directDigitization);
    EXPECT_EQ(state.samplesPerPacket, 12192u);
    EXPECT_EQ(state.decimation, 1024u);
    EXPECT_EQ(state.centreHz, 98100000);
    EXPECT_EQ(state.attenuation, 10u);
    EXPECT_TRUE(state.gain1);
    EXPECT_FALSE(state.gain2);
    EXPECT_EQ(mpScpi->errorAfter(":SENSe:DECimation OFF;INPUT:MODE DD"), "0,\"No error\"");
    EXPECT_EQ(mpUnit->state().decimation, 1u);
    EXPECT_TRUE(mpUnit->state().directDigitization);
}

TEST_F(Commands, sweepListIsBuiltEntryByEntry) {
    startUnit();
    EXPECT_EQ(mpScpi->errorAfter(
                  ":sweep:entry:delete all;:sweep:entry:new;:sweep:list:iter 0;:sweep:entry:att:var 20;"
                  ":sweep:entry:mode DD;:sweep:entry:spp 4096;:sweep:entry:ppb 2;:sweep:entry:save;"
                  ":sweep:entry:mode SH;:sweep:entry:freq:step 36000000;"
                  ":sweep:entry:freq:cent 118000000, 190000000;:sweep:entry:spp 32768;"
                  ":sweep:entry:ppb 1;:sweep:entry:dec 1;:sweep:entry:save;"
                  ":sweep:entry:new;:sweep:entry:copy 1;:sweep:entry:save"),
              "0,\"No error\"");
    const auto state = mpUnit->state();
    EXPECT_EQ(state.iterations, 0u);
    ASSERT_EQ(state.list.size(), 3u);
    EXPECT_TRUE(state.list[0].directDigitization);
    EXPECT_EQ(state.list[0].packetsPerBlock, 2u);
    EXPECT_EQ(state.list[1].centreFirst, 118000000u);
    EXPECT_EQ(state.list[1].centreLast, 190000000u);
    EXPECT_EQ(state.list[1].centreStep, 36000000u);
    EXPECT_EQ(state.list[1].attenuation, 20u);
    EXPECT_TRUE(state.list[2].directDigitization);
}

TEST_F(Commands, wrongCommandsEndInTheErrorQueue) {
    startUnit();
    EXPECT_EQ(mpScpi->errorAfter("NO:SUCH:THING 1"), "-113,\"Undefined header\"");
    EXPECT_EQ(mpScpi->errorAfter(":SENSE:DEC 3"), "-222,\"Data out of range\"");
    EXPECT_EQ(mpScpi->errorAfter(":TRACe:SPPacket 100"), "-222,\"Data out of range\"");
    EXPECT_EQ(mpScpi->errorAfter(":TRACe:SPPacket 4097"), "-222,\"Data out of range\"");
    EXPECT_EQ(mpScpi->errorAfter("FREQ:CENT"), "-109,\"Missing parameter\"");
    EXPECT_EQ(mpScpi->errorAfter("FREQ:CENT abc"), "-104,\"Data type error\"");
    EXPECT_EQ(mpScpi->errorAfter("FREQ:CENT 30e9"), "-222,\"Data out of range\"");
    EXPECT_EQ(mpScpi->errorAfter("INPUT:MODE XX"), "-224,\"Illegal parameter value\"");
    EXPECT_EQ(mpScpi->errorAfter(":sweep:entry:delete all;SWEEP:LIST:START 3"), "-221,\"Settings conflict\"");
    EXPECT_EQ(mpScpi->errorAfter(":NO:SUCH;:NO:SUCH"), "-113,\"Undefined header\"");
    EXPECT_EQ(mpScpi->ask("SYSTem:ERRor:NEXT?"), "-113,\"Undefined header\"");
    EXPECT_EQ(mpScpi->ask("syst:err?"), "0,\"No error\"");
    EXPECT_EQ(mpScpi->errorAfter(":NO:SUCH;*CLS"), "0,\"No error\"");
    mpUnit->pushError(-200, "Execution error");
    EXPECT_EQ(mpScpi->ask("SYST:ERR?"), "-200,\"Execution error\"");
}

TEST_F(Commands, aLongErrorQueueEndsInQueueOverflow) {
    startUnit();
    std::string line;
    for (int i = 0; i < 100; ++i) {
        line += ":NO:SUCH;";
    }
    mpScpi->send(line);
    std::string last, next;
    while ((next = mpScpi->ask("SYST:ERR?").value_or("0,")).compare(0, 2, "0,") != 0) {
        last = next;
    }
    EXPECT_EQ(last, "-350,\"Queue overflow\"");
}

TEST_F(Commands, modelsRefuseWhatTheyDoNotHave) {
    startUnit({}, "ZV100-A");
    EXPECT_EQ(mpScpi->errorAfter(":INPut:ATTenuator 30"), "0,\"No error\"");
    EXPECT_EQ(mpScpi->errorAfter(":INPut:ATTenuator 15"), "-224,\"Illegal parameter value\"");
    EXPECT_EQ(mpScpi->errorAfter(":INPut:ATTenuator:VARiable 10"), "-241,\"Hardware missing\"");
    EXPECT_EQ(mpScpi->errorAfter(":INPut:GAIN 1 1"), "-241,\"Hardware missing\"");
    EXPECT_EQ(mpScpi->errorAfter(":GNSS:ADELay 5"), "-241,\"Hardware missing\"");
    EXPECT_EQ(mpScpi->errorAfter(":SOURce:REFerence:PLL GNSS"), "-241,\"Hardware missing\"");
    EXPECT_EQ(mpScpi->errorAfter("FREQ:CENT 8000000000 Hz"), "0,\"No error\"");
    EXPECT_EQ(mpScpi->errorAfter("FREQ:CENT 8000000512 Hz"), "-222,\"Data out of range\"");
}

TEST_F(Commands, everyModelIdentifiesItselfAndTunesToItsEnd) {
    EXPECT_EQ(vnksim::modelNames(vnksim::Family::first).size(), 13u);
    for (const std::string& model : vnksim::modelNames(vnksim::Family::first)) {
        startUnit({}, model);
        EXPECT_EQ(mpScpi->ask("*IDN?").value_or("").find("Varnik," + model + " 1.0,"), 0u);
        const char type = model[6];
        const char* highest = type == 'C' ? "27000000512" : type == 'B' ? "17999998976" : "8000000000";
        EXPECT_EQ(mpScpi->errorAfter(std::string("FREQ:CENT ") + highest + " Hz"), "0,\"No error\"") << model;
        const bool gnss = model[2] == '3';
        EXPECT_EQ(mpScpi->errorAfter(":GNSS:DYNamic:MODE 4") == "0,\"No error\"", gnss) << model;
    }
}

TEST_F(Commands, statusQueriesAnswer) {
    startUnit({}, "ZV350-C");
    EXPECT_EQ(mpScpi->ask("SYSTEM:OPTIONS?"), "000");
    EXPECT_EQ(mpScpi->ask(":SYSTem:CAPTure:MODE?"), "BLOCK");
    EXPECT_EQ(mpScpi->ask("SYST:LOCK:REQ? ACQ"), "1");
    EXPECT_EQ(mpScpi->ask(":SOURce:REFerence:PLL?"), "INT");
    EXPECT_EQ(mpScpi->ask(":SOURce:REFerence:PPS?"), "GNSS");
    EXPECT_EQ(mpScpi->ask(":SYSTEM:TIME:SYNC?"), "DISABLE");
    EXPECT_EQ(mpScpi->ask(":GNSS:ADELay?;:GNSS:CONStellation?;:GNSS:DYNamic:MODE?"), "0;GPS;2");
    EXPECT_EQ(mpScpi->ask(":GNSS:POSition?"), "45.3333,-75.9,160");
    EXPECT_EQ(mpScpi->ask(":STATus:TEMPerature?"), "41.50,43.25,46.75");
    EXPECT_EQ(mpScpi->errorAfter(":SYSTem:TIME:SYNC NTP,CONTINUOUS;:SOURce:REFerence:PLL GNSS;"
                                 "SYSTEM:COMMUNICATE:NTP 10.0.0.1,10.0.0.2;SYST:COMM:LAN:IP 0.0.0.0;"
                                 ":GNSS:CONStellation GPS,GLONASS"),
              "0,\"No error\"");
    EXPECT_EQ(mpScpi->ask(":SYSTEM:TIME:SYNC?"), "NTP,CONTINUOUS");
    EXPECT_EQ(mpScpi->ask("SYSTEM:COMMUNICATE:NTP?"), "10.0.0.1,10.0.0.2");
    EXPECT_EQ(mpScpi->ask(":GNSS:CONStellation?"), "GPS,GLONASS");
    EXPECT_NE(mpScpi->ask(":SYSTem:TIME?").value_or("").find(','), std::string::npos);
    EXPECT_EQ(mpScpi->ask(":SYSTem:DATE?").value_or("").find("20"), 0u);
}

TEST_F(Commands, correctionDataComeAsBlocks) {
    startUnit();
    const int size = std::stoi(mpScpi->ask("DATA:CORRECTION:SIGNAL:SIZE?").value_or("0"));
    mpScpi->send("DATA:CORRECTION:SIGNAL:READ? 0, 48");
    const auto header = mpScpi->receive(4 + 48 + 1);
    ASSERT_EQ(header.size(), 53u);
    EXPECT_EQ(std::string(header.begin(), header.begin() + 4), "#248");
    EXPECT_EQ(header.back(), '\n');
    const auto word = [&header](size_t offset) { return header[4 + offset] << 8 | header[5 + offset]; };
    const int rows = word(2), vectors = word(4), points = word(6);
    EXPECT_EQ(size, 48 + 6 * rows + vectors * (2 + 4 * points));
    mpScpi->send("DATA:CORRECTION:SIGNAL:READ? " + std::to_string(48 + 6 * rows + 2 + 4 * points) + ", 2");
    const auto index = mpScpi->receive(3 + 2 + 1);
    ASSERT_EQ(index.size(), 6u);
    EXPECT_EQ(index[4], 1);
    EXPECT_EQ(mpScpi->errorAfter("DATA:CORRECTION:NOISE:READ? " + std::to_string(size) + ", 48"),
              "-222,\"Data out of range\"");
    vnksim::CorrectionData none;
    mpUnit->setCorrections(none);
    EXPECT_EQ(mpScpi->ask("DATA:CORRECTION:SIGNAL:SIZE?"), "0");
    none.noiseSize = 77;
    mpUnit->setCorrections(none);
    EXPECT_EQ(mpScpi->ask("DATA:CORRECTION:NOISE:SIZE?"), "77");
}

TEST_F(Commands, journalHoldsLinesConnectionsAndTimes) {
    startUnit();
    Client second(mcOptions.address, vnksim::kScpiPort);
    const size_t before = mpUnit->journal().size();
    mpScpi->send("FREQ:CENT 98100000 Hz");
    ASSERT_TRUE(mpUnit->journal().waitFor("98100000", 5s, before));
    EXPECT_TRUE(second.ask("*IDN?").has_value());
    const auto entries = mpUnit->journal().snapshot();
    ASSERT_EQ(entries.size(), before + 2);
    EXPECT_EQ(entries[before].line, "FREQ:CENT 98100000 Hz");
    EXPECT_EQ(entries[before + 1].line, "*IDN?");
    EXPECT_NE(entries[before].connection, entries[before + 1].connection);
    EXPECT_LE(entries[before].steadyNs, entries[before + 1].steadyNs);
    EXPECT_FALSE(mpUnit->journal().waitFor("never", 1ms));
    EXPECT_EQ(mpUnit->journal().count("*IDN?"), 1u);
}

TEST_F(Commands, resetGoesBackToBlockAndToTheFirstSettings) {
    startUnit();
    mpScpi->send(":INPut:ATTenuator:VARiable 30;:TRACe:STReam:STARt 5");
    EXPECT_EQ(mpScpi->ask(":SYSTem:CAPTure:MODE?"), "STREAMING");
    mpScpi->send("*RST");
    EXPECT_EQ(mpScpi->ask(":SYSTem:CAPTure:MODE?"), "BLOCK");
    EXPECT_EQ(mpUnit->state().attenuation, 0u);
}

}  // namespace
}  // namespace simtest
