#include "streams/recordingfile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <random>

#include "support/resources.h"
#include "unit/streams/recordingsupport.h"

using vnktest::Bytes;
using vnktest::readWhole;
using vnktest::sameBytes;
using vnktest::writeWhole;

namespace {

std::string noise(size_t uCount, std::mt19937::result_type uSeed = 1) {
    std::mt19937 cGenerator(uSeed);
    std::string text(uCount, '\0');
    for (char& c : text)
        c = static_cast<char>(cGenerator());
    return text;
}

}  // namespace

class RecordingFileTest : public ::testing::Test {
 protected:
    std::string path(const std::string& name = "x.data") const { return mcFolder.path(name); }
    std::string file(const std::string& name = "x.data") const { return mcFolder.file(name); }
    vnktest::TempFolder mcFolder;
};

using RecordingOutput = RecordingFileTest;
using RecordingInput = RecordingFileTest;

// Writing.

TEST_F(RecordingOutput, OpeningMakesTheFileAndEmptiesOneThatIsThere) {
    OutputFile cFile;
    EXPECT_FALSE(cFile.buffer().isOpen());
    ASSERT_TRUE(cFile.buffer().open(path(), false));
    EXPECT_TRUE(cFile.buffer().isOpen());
    EXPECT_EQ(readWhole(file()), "");
    writeWhole(file("old.data"), "of before");
    OutputFile cOld;
    ASSERT_TRUE(cOld.buffer().open(path("old.data"), false));
    EXPECT_EQ(readWhole(file("old.data")), "");
}

TEST_F(RecordingOutput, OpeningOnlyNewLeavesAFileThatIsThereAlone) {
    writeWhole(file(), "of before");
    OutputFile cFile;
    EXPECT_FALSE(cFile.buffer().open(path(), true));
    EXPECT_EQ(cFile.buffer().lastError(), EEXIST);
    EXPECT_EQ(readWhole(file()), "of before");
    OutputFile cNew;
    EXPECT_TRUE(cNew.buffer().open(path("new.data"), true));
}

TEST_F(RecordingOutput, BytesLieInTheFileInOrderWhateverTheirSizes) {
    std::mt19937 cGenerator(7);
    std::string expected;
    {
        OutputFile cFile;
        ASSERT_TRUE(cFile.buffer().open(path(), false));
        for (const size_t uSize : {1u, 4u, 4095u, 4096u, 4097u, 0u, 100000u, 3u, 4092u, 4u, 8u, 8192u, 1u})
            for (int i = 0; i < 3; ++i) {
                const std::string text = noise(uSize, cGenerator());
                ASSERT_TRUE(cFile.write(text.data(), static_cast<std::streamsize>(text.size())));
                cFile.put('!');
                expected += text + "!";
            }
        ASSERT_TRUE(cFile.buffer().commit());
        EXPECT_TRUE(sameBytes(readWhole(file()), expected));
        cFile << "tail";
    }
    EXPECT_TRUE(sameBytes(readWhole(file()), expected + "tail"))
        << "the end of the object writes what it holds";
}

TEST_F(RecordingOutput, SingleBytesFillTheBufferManyTimes) {
    const std::string expected = noise(3 * 4096 + 17);
    {
        OutputFile cFile;
        ASSERT_TRUE(cFile.buffer().open(path(), false));
        for (const char c : expected)
            cFile.put(c);
        EXPECT_TRUE(cFile.good());
    }
    EXPECT_TRUE(sameBytes(readWhole(file()), expected));
}

TEST_F(RecordingOutput, FileThatIsNotOpenTakesNothing) {
    OutputFile cFile;
    EXPECT_FALSE(cFile.write(noise(5000).data(), 5000));
    EXPECT_EQ(cFile.buffer().lastError(), EBADF);
    OutputFile cSmall;
    cSmall << "x";
    EXPECT_FALSE(cSmall.buffer().commit());
}

TEST_F(RecordingOutput, RollBackLeavesWhatWasCommittedAndNotAByteMore) {
    for (const size_t uTorn : {1u, 100u, 5000u, 100000u}) {
        OutputFile cFile;
        ASSERT_TRUE(cFile.buffer().open(path(), false));
        cFile << "one whole frame";
        ASSERT_TRUE(cFile.buffer().commit());
        const std::string torn = noise(uTorn);
        cFile.write(torn.data(), static_cast<std::streamsize>(torn.size()));
        cFile.buffer().rollBack();
        EXPECT_TRUE(sameBytes(readWhole(file()), "one whole frame")) << uTorn;
        // Nor does anything come later.
        cFile.buffer().close();
        EXPECT_TRUE(sameBytes(readWhole(file()), "one whole frame")) << uTorn;
    }
}

TEST_F(RecordingOutput, AfterARollBackTheFileGoesOnBehindWhatWasCommitted) {
    OutputFile cFile;
    ASSERT_TRUE(cFile.buffer().open(path(), false));
    cFile << "kept, ";
    ASSERT_TRUE(cFile.buffer().commit());
    cFile.write(noise(10000).data(), 10000);
    cFile.buffer().rollBack();
    cFile << "and more";
    ASSERT_TRUE(cFile.buffer().commit());
    EXPECT_TRUE(sameBytes(readWhole(file()), "kept, and more"));
}

TEST_F(RecordingOutput, AnythingButARegularFileIsRefusedAtOnce) {
    ASSERT_EQ(::mkfifo(file("fifo").c_str(), 0600), 0);
    std::filesystem::create_directory(file("folder"));
    std::filesystem::create_symlink("/dev/null", file("device"));
    std::filesystem::create_symlink(file("fifo"), file("to-fifo"));
    const size_t uBefore = vnktest::openDescriptors();
    for (const char* pName : {"fifo", "folder", "device", "to-fifo", "missing\\x"}) {
        OutputFile cFile;
        EXPECT_FALSE(cFile.buffer().open(path(pName), false)) << pName;
        EXPECT_FALSE(cFile.buffer().isOpen());
        EXPECT_NE(cFile.buffer().lastError(), 0);
    }
    EXPECT_EQ(vnktest::openDescriptors(), uBefore);
}

TEST_F(RecordingOutput, FifoWithAReaderIsRefusedToo) {
    ASSERT_EQ(::mkfifo(file().c_str(), 0600), 0);
    const int iReader = ::open(file().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(iReader, 0);
    OutputFile cFile;
    EXPECT_FALSE(cFile.buffer().open(path(), false));
    char c;
    EXPECT_EQ(::read(iReader, &c, 1), 0) << "nobody has written";
    ::close(iReader);
}

TEST_F(RecordingOutput, LinkThatLeadsNowhereMakesItsTarget) {
    std::filesystem::create_symlink(file("target"), file());
    OutputFile cFile;
    EXPECT_FALSE(cFile.buffer().open(path(), true)) << "the link itself is there";
    ASSERT_TRUE(cFile.buffer().open(path(), false));
    cFile << "x";
    cFile.buffer().close();
    EXPECT_EQ(readWhole(file("target")), "x");
}

TEST_F(RecordingOutput, DescriptorIsNotPassedOnToPrograms) {
    OutputFile cFile;
    ASSERT_TRUE(cFile.buffer().open(path(), false));
    size_t uOfUs = 0;
    for (const auto& cEntry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code cIgnored;
        if (std::filesystem::read_symlink(cEntry.path(), cIgnored) != std::filesystem::path(file()))
            continue;
        ++uOfUs;
        EXPECT_TRUE(::fcntl(std::stoi(cEntry.path().filename()), F_GETFD) & FD_CLOEXEC);
    }
    EXPECT_EQ(uOfUs, 1u);
}

// Reading.

TEST_F(RecordingInput, ReadsBackAnySequenceOfSizes) {
    const std::string text = noise(200000);
    writeWhole(file(), text);
    InputFile cFile;
    ASSERT_TRUE(cFile.buffer().open(path()));
    std::mt19937 cGenerator(3);
    size_t uAt = 0;
    std::string got;
    while (uAt < text.size()) {
        const size_t uSizes[] = {1, 4, 8, 4095, 4096, 4097, 20000};
        got.resize(uSizes[cGenerator() % 7]);
        cFile.read(got.data(), static_cast<std::streamsize>(got.size()));
        const size_t uGot = static_cast<size_t>(cFile.gcount());
        ASSERT_EQ(uGot, std::min(got.size(), text.size() - uAt));
        ASSERT_TRUE(sameBytes(got.substr(0, uGot), text.substr(uAt, uGot))) << uAt;
        uAt += uGot;
        if (cFile) {
            ASSERT_EQ(cFile.tellg(), static_cast<std::streamoff>(uAt));
        }
    }
    cFile.clear();
    EXPECT_EQ(cFile.get(), std::char_traits<char>::eof());
}

TEST_F(RecordingInput, EveryWayToSetThePositionLeadsToTheSameByte) {
    const std::string text = noise(50000);
    writeWhole(file(), text);
    InputFile cFile;
    ASSERT_TRUE(cFile.buffer().open(path()));
    std::mt19937 cGenerator(4);
    for (int i = 0; i < 2000; ++i) {
        const auto iWanted = static_cast<std::streamoff>(cGenerator() % text.size());
        switch (cGenerator() % 3) {
            case 0:
                cFile.seekg(iWanted);
                break;
            case 1:
                cFile.seekg(iWanted - cFile.tellg(), std::ios_base::cur);
                break;
            default:
                cFile.seekg(iWanted - static_cast<std::streamoff>(text.size()), std::ios_base::end);
                break;
        }
        ASSERT_EQ(cFile.tellg(), iWanted);
        ASSERT_EQ(static_cast<char>(cFile.get()), text[static_cast<size_t>(iWanted)]);
        ASSERT_EQ(cFile.tellg(), iWanted + 1);
    }
}

TEST_F(RecordingInput, PositionBeforeTheStartIsRefused) {
    writeWhole(file(), "0123456789");
    InputFile cFile;
    ASSERT_TRUE(cFile.buffer().open(path()));
    cFile.seekg(-1);
    EXPECT_FALSE(cFile);
    cFile.clear();
    cFile.seekg(-11, std::ios_base::end);
    EXPECT_FALSE(cFile);
    cFile.clear();
    EXPECT_EQ(cFile.get(), '0');
}

TEST_F(RecordingInput, FileThatIsNotOpenHasNoPositionAndNoBytes) {
    InputFile cFile;
    EXPECT_FALSE(cFile.buffer().open(path("missing")));
    EXPECT_EQ(cFile.tellg(), std::istream::pos_type(-1));
    char c = 'u';
    EXPECT_FALSE(cFile.read(&c, 1));
    EXPECT_EQ(c, 'u');
}

TEST_F(RecordingInput, AnythingButARegularFileIsRefusedAtOnce) {
    ASSERT_EQ(::mkfifo(file("fifo").c_str(), 0600), 0);
    std::filesystem::create_directory(file("folder"));
    std::filesystem::create_symlink("/dev/zero", file("device"));
    std::filesystem::create_symlink(file("nowhere"), file("dangling"));
    std::filesystem::create_symlink(file("loop"), file("loop"));
    const size_t uBefore = vnktest::openDescriptors();
    for (const char* pName : {"fifo", "folder", "device", "dangling", "loop"}) {
        InputFile cFile;
        EXPECT_FALSE(cFile.buffer().open(path(pName))) << pName;
        EXPECT_FALSE(cFile.buffer().isOpen());
    }
    EXPECT_EQ(vnktest::openDescriptors(), uBefore);
}

TEST_F(RecordingInput, FileThatShrinksWhileItIsReadEndsThere) {
    writeWhole(file(), noise(100000));
    InputFile cFile;
    ASSERT_TRUE(cFile.buffer().open(path()));
    std::string got(90000, '\0');
    ASSERT_TRUE(cFile.read(got.data(), 1000));
    ASSERT_EQ(::truncate(file().c_str(), 20000), 0);
    EXPECT_FALSE(cFile.read(got.data(), 90000));
    EXPECT_EQ(cFile.gcount(), 19000);
}

TEST_F(RecordingInput, FileThatGrowsIsReadOn) {
    writeWhole(file(), "one");
    InputFile cFile;
    ASSERT_TRUE(cFile.buffer().open(path()));
    std::string got(3, '\0');
    ASSERT_TRUE(cFile.read(got.data(), 3));
    EXPECT_EQ(cFile.get(), std::char_traits<char>::eof());
    std::ofstream(file(), std::ios::app | std::ios::binary) << "two";
    cFile.clear();
    ASSERT_TRUE(cFile.read(got.data(), 3));
    EXPECT_EQ(got, "two");
}

TEST_F(RecordingInput, FramesBeyondFourGigabytesAreReadAtTheirPlace) {
    constexpr std::streamoff kFar = (std::streamoff{1} << 32) + 12345;
    const std::string frame =
        Bytes().u32(0x12F7A2E6).u64(0x1122334455667788).u32(0xFFFFFFFE).u32(2).floats({1, 2, 3, 4}).text();
    const int iFile = ::open(file().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_GE(iFile, 0);
    for (int i = 0; i < 2; ++i)
        ASSERT_EQ(::pwrite(iFile, frame.data(), frame.size(), kFar + i * static_cast<off_t>(frame.size())),
                  static_cast<ssize_t>(frame.size()));
    ::close(iFile);
    struct stat cStat;
    ASSERT_EQ(::stat(file().c_str(), &cStat), 0);
    ASSERT_LT(cStat.st_blocks * 512, std::streamoff{1} << 20) << "the file system holds no files with holes";

    InputFile cFile;
    ASSERT_TRUE(cFile.buffer().open(path()));
    cFile.seekg(0, std::ios_base::end);
    EXPECT_EQ(cFile.tellg(), kFar + 2 * static_cast<std::streamoff>(frame.size()));
    cFile.seekg(kFar);
    const auto cSpectrum = vnktest::makeSpectrum({}, vnktest::ramp(0));
    EXPECT_EQ(cSpectrum->readFrom(cFile), 0u);
    EXPECT_EQ(cFile.tellg(), kFar) << "a frame of another kind leaves the position";
    const auto cFrame = vnktest::makeIQ({}, vnktest::ramp(0));
    for (int i = 1; i <= 2; ++i) {
        EXPECT_EQ(cFrame->readFrom(cFile), 2u);
        EXPECT_EQ(cFile.tellg(), kFar + i * static_cast<std::streamoff>(frame.size()));
        EXPECT_EQ(cFrame->timestamp(), 0x1122334455667788u);
        EXPECT_EQ(cFrame->sequence(), 0xFFFFFFFEu);
    }
    EXPECT_EQ(cFrame->readFrom(cFile), 0u);
}
