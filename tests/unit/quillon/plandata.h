#pragma once

#include <gtest/gtest.h>

#include <bit>
#include <fstream>
#include <string>

namespace vnktest {

inline std::ifstream openData(const char* pName) {
    std::ifstream cFile(std::string(VNK_TEST_DATA) + "/" + pName);
    EXPECT_TRUE(cFile.is_open()) << pName;
    return cFile;
}

inline float fromBits(const std::string& hex) {
    return std::bit_cast<float>(static_cast<uint32_t>(std::stoul(hex, nullptr, 16)));
}

/// The next word as a value; a float is given by its bits.
template <typename T>
T take(std::istream& cWords) {
    std::string word;
    EXPECT_TRUE(cWords >> word);
    if constexpr (std::is_same_v<T, float>)
        return fromBits(word);
    else
        return static_cast<T>(std::stoll(word));
}

}  // namespace vnktest
