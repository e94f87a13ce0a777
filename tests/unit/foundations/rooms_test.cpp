#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "foundations/clock.h"

namespace {

/// The check of the includes of a room, run on a room of one file.
class RoomCheck : public testing::Test {
 protected:
    void SetUp() override {
        mcFolder = std::filesystem::temp_directory_path() /
                   ("vnk-room-" + std::to_string(utils::steadyMicroseconds())) / "links";
        std::filesystem::create_directories(mcFolder);
    }
    void TearDown() override { std::filesystem::remove_all(mcFolder.parent_path()); }
    bool accepts(const std::string& source) {
        std::ofstream(mcFolder / "file.cpp") << "#pragma once\n" << source << "\n";
        const std::string command = "cmake '-DROOM=" + mcFolder.string() +
                                    "' '-DALLOWED=links|foundations' -P '" VNK_SOURCE_DIR
                                    "/cmake/check_room.cmake' >'" +
                                    (mcFolder.parent_path() / "output").string() + "' 2>&1";
        return std::system(command.c_str()) == 0;
    }
    std::string output() {
        std::ifstream cFile(mcFolder.parent_path() / "output");
        return {std::istreambuf_iterator<char>(cFile), {}};
    }
    std::filesystem::path mcFolder;
};

TEST_F(RoomCheck, acceptsTheRoomItselfAndTheRoomsBelow) {
    EXPECT_TRUE(
        accepts("#include \"links/transport.h\"\n#include \"foundations/clock.h\"\n#include <vector>"))
        << output();
}

TEST_F(RoomCheck, refusesARoomAboveAndNamesFileAndLine) {
    EXPECT_FALSE(accepts("#include \"receivers/device.h\""));
    EXPECT_NE(output().find("file.cpp:2"), std::string::npos) << output();
}

}  // namespace
