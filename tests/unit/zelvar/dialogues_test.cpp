// Replays the wire dialogues of tests/data/dialogues against a unit without a wire.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "foundations/text.h"
#include "support/errorlog.h"
#include "support/faketransport.h"
#include "zelvar/devicetypes.h"
#include "zelvar/zelvarreceiver.h"

namespace {

using Lines = std::vector<std::string>;

std::string replaceAll(std::string text, const std::string& what, const std::string& by) {
    for (size_t uAt = 0; (uAt = text.find(what, uAt)) != std::string::npos; uAt += by.size())
        text.replace(uAt, what.size(), by);
    return text;
}

Lines readLines(const std::filesystem::path& cPath) {
    std::ifstream cFile(cPath);
    Lines lLines;
    for (std::string line; std::getline(cFile, line);)
        lLines.push_back(line);
    return lLines;
}

bool takePrefix(std::string& line, const std::string& prefix) {
    if (line.rfind(prefix, 0) != 0)
        return false;
    line.erase(0, prefix.size());
    return true;
}

/// Plays one dialogue for one model.
class Player {
 public:
    ~Player() { close(); }

    void play(const Lines& lLines, const std::string& model) {
        vnktest::takeLog();
        for (size_t i = 0; i < lLines.size(); ++i) {
            miLine = static_cast<int>(i + 1);
            perform(replaceAll(replaceAll(lLines[i], "$MODEL", model), "$HOST", mcUnit.host()));
        }
        check();
        close();
        EXPECT_EQ(mcUnit->miLinks, 0) << "a link is left";
        EXPECT_GT(miActions, 0);
    }

 private:
    void perform(std::string line) {
        if (line.empty() || line[0] == '#' || takePrefix(line, "models "))
            return;
        if (takePrefix(line, "> "))
            mlExpected.push_back(line);
        else if (takePrefix(line, "! "))
            mlExpectedLog.push_back(line);
        else if (takePrefix(line, "result "))
            mcExpectedResult = line;
        else if (takePrefix(line, "has "))
            mlExpectedParts.push_back(line);
        else if (takePrefix(line, "do ")) {
            check();
            act(line);
        } else {
            check();
            arrange(line);
        }
    }

    void arrange(std::string line) {
        if (takePrefix(line, "reply ")) {
            std::string_view rest = line;
            const std::string query(utils::takeBefore(rest, " | "));
            std::deque<std::string> replies;
            while (!rest.empty()) {
                const std::string reply(utils::takeBefore(rest, " | "));
                replies.push_back(reply == "-" ? "" : reply + "\n");
            }
            mcUnit->reply(query, replies);
        } else if (takePrefix(line, "block ")) {
            arrangeBlock(line);
        } else if (line == "refuse commands" || line == "refuse data" || line == "accept") {
            mcUnit->mbRefuseCommands = line == "refuse commands";
            mcUnit->mbRefuseData = line == "refuse data";
        } else {
            ADD_FAILURE() << "line " << miLine << ": what is '" << line << "'?";
        }
    }

    /// The bytes stand behind the query's own two numbers.
    void arrangeBlock(const std::string& line) {
        const size_t uNumber = line.find_first_not_of("0123456789", line.find(", ") + 2);
        std::istringstream cBytes(line.substr(uNumber));
        std::string payload;
        for (unsigned uByte; cBytes >> std::hex >> uByte;)
            payload += static_cast<char>(uByte);
        const std::string digits = std::to_string(payload.size());
        mcUnit->reply(line.substr(0, uNumber),
                      {"#" + std::to_string(digits.size()) + digits + payload + "\n"});
    }

    void act(std::string line) {
        ++miActions;
        miActionLine = miLine;
        if (line == "open") {
            close();
            mcUnit->takeJournal();
            ZelvarRawDeviceType& cType = rawType();
            mcDevice = cType.create("TCP/IP", mcUnit.host());
            mcResult = mcDevice ? "open" : "none";
        } else if (line == "close") {
            close();
        } else if (line == "get") {
            mcResult = mcDevice->getParameters().toCompactText();
        } else if (takePrefix(line, "set ")) {
            utils::VariantRecord cRecord(line.c_str());
            ErrorList lErrors;
            mcDevice->setParameters(cRecord, lErrors);
            mcResult = utils::join(lErrors, " / ");
        } else if (line == "reopen") {
            mcResult = mcDevice->reopen() ? "true" : "false";
        } else if (takePrefix(line, "command ")) {
            mcResult = mcDevice->sendRawCommand(line) ? "true" : "false";
        } else if (takePrefix(line, "query ")) {
            std::string reply;
            mcResult = mcDevice->queryRaw(line, reply) ? replaceAll(reply, "\n", "\\n") : "false";
        } else if (line == "recover") {
            mcResult = channel()->recoverAccess() ? "true" : "false";
        } else if (takePrefix(line, "batch ")) {
            mcResult = batch(line);
        } else {
            ADD_FAILURE() << "line " << miLine << ": do what?";
        }
        mbActed = true;
    }

    void check() {
        if (!mbActed)
            return;
        const std::string where = "the action of line " + std::to_string(miActionLine);
        EXPECT_EQ(mcUnit->takeJournal(), mlExpected) << where;
        Lines lLog;
        for (const auto& cLine : vnktest::takeLog())
            lLog.push_back(std::to_string(cLine.miCode) + " " + cLine.mcText);
        EXPECT_EQ(lLog, mlExpectedLog) << where;
        EXPECT_EQ(mcResult, mcExpectedResult.value_or(mcResult)) << where;
        for (const std::string& part : mlExpectedParts)
            EXPECT_NE(mcResult.find(part), std::string::npos) << where << ": " << part << " in " << mcResult;
        mlExpected.clear();
        mlExpectedLog.clear();
        mlExpectedParts.clear();
        mcExpectedResult.reset();
        mbActed = false;
    }

    void close() {
        mcChannel.release();
        if (!mcDevice)
            return;
        Device::forget(mcDevice.get());
        mcDevice.release();
    }

    ReferencePtr<CommandChannel> channel() {
        if (!mcChannel) {
            mcChannel = makeReference<CommandChannel>(makeReference<LinkWatch>(),
                                                      CommandWords{"Cannot obtain acquisition access"});
            mcChannel->setProtocol(
                makeReference<SCPIProtocol>(TransportType::openByName("TCP/IP", mcUnit.host() + ":37001")));
            mcUnit->takeJournal();
        }
        return mcChannel;
    }

    std::string batch(const std::string& text) {
        try {
            channel()->sendBatch(text);
            return "done";
        } catch (const std::string& error) {
            return error;
        }
    }

    static ZelvarRawDeviceType& rawType() {
        static ZelvarRawDeviceType scType;
        return scType;
    }

    vnktest::ReachableUnit mcUnit;
    ReferencePtr<Device> mcDevice;
    ReferencePtr<CommandChannel> mcChannel;
    int miLine = 0;
    int miActionLine = 0;
    int miActions = 0;
    bool mbActed = false;
    std::string mcResult;
    std::optional<std::string> mcExpectedResult;
    Lines mlExpected;
    Lines mlExpectedLog;
    Lines mlExpectedParts;
};

std::vector<std::string> dialogues() {
    std::vector<std::string> lNames;
    for (const auto& cEntry : std::filesystem::directory_iterator(VNK_TEST_DATA "/dialogues"))
        if (cEntry.path().extension() == ".txt" && readLines(cEntry.path()).size() > 1)
            lNames.push_back(cEntry.path().stem().string());
    std::sort(lNames.begin(), lNames.end());
    return lNames;
}

class Dialogue : public testing::TestWithParam<std::string> {};

}  // namespace

TEST_P(Dialogue, BringsExactlyTheseLines) {
    const Lines lLines = readLines(std::filesystem::path(VNK_TEST_DATA "/dialogues") / (GetParam() + ".txt"));
    int iModels = 0;
    for (std::string line : lLines) {
        if (!takePrefix(line, "models "))
            continue;
        std::istringstream cModels(line);
        for (std::string model; cModels >> model; ++iModels) {
            SCOPED_TRACE(model);
            Player().play(lLines, model);
        }
    }
    EXPECT_GT(iModels, 0) << "no line of models";
}

INSTANTIATE_TEST_SUITE_P(Wire, Dialogue, testing::ValuesIn(dialogues()), [](const auto& cInfo) {
    std::string name = cInfo.param;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
});
