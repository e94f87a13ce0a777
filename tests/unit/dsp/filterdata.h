#pragma once

#include <gtest/gtest.h>

#include <complex>
#include <fstream>
#include <numbers>
#include <sstream>
#include <string>
#include <vector>

#include "foundations/fatalerror.h"

/// Expectations computed by tests/data/make_filters.py, and what tests of filters share.
namespace filterdata {

inline constexpr double kPi = std::numbers::pi;

struct Butterworth {
    float mf3dB;
    float mfSample;
    uint32_t muOrder;
    std::vector<double> mlB;
    std::vector<double> mlA;  // a1, a2, ...
    std::vector<double> mlImpulseResponse;
};

inline std::vector<double> readNumbers(std::istream& cStream, size_t uCount) {
    std::vector<double> lNumbers(uCount);
    for (double& fNumber : lNumbers)
        cStream >> fNumber;
    EXPECT_TRUE(cStream) << "filters.txt is cut off";
    return lNumbers;
}

/// The lines of filters.txt that begin with the word, without it.
inline std::vector<std::istringstream> linesOf(const std::string& word) {
    std::ifstream cFile(std::string(VNK_TEST_DATA) + "/filters.txt");
    EXPECT_TRUE(cFile.is_open());
    std::vector<std::istringstream> lLines;
    for (std::string line; std::getline(cFile, line);)
        if (line.rfind(word + " ", 0) == 0)
            lLines.emplace_back(line.substr(word.size()));
    EXPECT_FALSE(lLines.empty()) << word;
    return lLines;
}

inline std::vector<Butterworth> butterworths() {
    std::vector<Butterworth> lAll;
    for (std::istringstream& cLine : linesOf("butterworth")) {
        Butterworth cOne;
        cLine >> cOne.mf3dB >> cOne.mfSample >> cOne.muOrder;
        cOne.mlB = readNumbers(cLine, cOne.muOrder + 1);
        cOne.mlA = readNumbers(cLine, cOne.muOrder);
        cOne.mlImpulseResponse = readNumbers(cLine, 64);
        lAll.push_back(cOne);
    }
    return lAll;
}

inline double decibels(double fRatio) {
    return 20.0 * std::log10(fRatio);
}

/// Sum of c(n) exp(-2 pi i f n), f in parts of the sample rate.
template <typename Container>
std::complex<double> transform(const Container& lValues, double fRate) {
    std::complex<double> cSum = 0.0;
    size_t n = 0;
    for (const auto fValue : lValues)
        cSum += double{fValue} * std::polar(1.0, -2.0 * kPi * fRate * static_cast<double>(n++));
    return cSum;
}

/// The text of the assertion that the action fails; "none" if it fails none.
template <typename Action>
std::string assertionOf(Action action) {
    try {
        action();
    } catch (const utils::FatalError& cError) {
        return cError.message();
    }
    return "none";
}

}  // namespace filterdata
