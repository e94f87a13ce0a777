#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <limits>

#include "unit/streams/streamoutputsupport.h"

using vnktest::Bytes;
using vnktest::FrameFields;
using vnktest::iqBytes;
using vnktest::makeBaseband;
using vnktest::makeIQ;
using vnktest::makeSpectrum;
using vnktest::parseRecord;
using vnktest::readWhole;

// Any frames: the bytes beside a model that knows the format only.

namespace {

FrameFields anyFields() {
    FrameFields c;
    c.muSequence = *rc::gen::arbitrary<uint32_t>();
    c.muTimestamp =
        *rc::gen::oneOf(rc::gen::arbitrary<uint64_t>(), rc::gen::element(uint64_t{0}, ~uint64_t{0}));
    c.muDuration = *rc::gen::arbitrary<uint64_t>();
    c.muResolution = *rc::gen::element(0u, 1u, 2u, 3u, 4u, 5u, 0xFFFFFFFFu);
    c.mfSampleRateHz =
        *rc::gen::element(48000.0f, 0.0f, -1.0f, 3.0e38f, std::numeric_limits<float>::quiet_NaN());
    return c;
}

/// Any bits at all: numbers of all sizes, infinities, NaNs with payload.
std::vector<float> anyFloats(size_t uCount) {
    std::vector<float> lValues(uCount);
    for (float& fValue : lValues) {
        const uint32_t uBits = *rc::gen::oneOf(
            rc::gen::arbitrary<uint32_t>(),
            rc::gen::element(0x7F800000u, 0xFF800000u, 0x7FC00000u, 0x80000000u, 1u, 0x7F7FFFFFu));
        std::memcpy(&fValue, &uBits, sizeof uBits);
        // A signalling NaN does not survive each copy on every machine.
        if (fValue != fValue)
            fValue = std::numeric_limits<float>::quiet_NaN();
    }
    return lValues;
}

struct Modelled {
    ReferencePtr<Frame> mcFrame;
    std::string mcBytes;
    uint64_t muSamples = 0;
};

Modelled anyIQ() {
    const FrameFields c = anyFields();
    const auto lPairs = anyFloats(*rc::gen::inRange<size_t>(0, 20) * 2);
    return {makeIQ(c, lPairs), iqBytes(c.muSequence, c.muTimestamp, lPairs), lPairs.size() / 2};
}

Modelled anySpectrum() {
    const FrameFields c = anyFields();
    const auto lPoints = anyFloats(*rc::gen::inRange<size_t>(0, 40));
    const auto uCount = static_cast<uint32_t>(lPoints.size());
    return {makeSpectrum(c, lPoints),
            Bytes()
                .u32(0x59EC7422)
                .u64(c.muTimestamp)
                .u64(c.muDuration)
                .u32(c.muSequence)
                .u32(uCount)
                .floats(lPoints)
                .text(),
            uCount};
}

Modelled anyBaseband() {
    const auto uSamples = *rc::gen::inRange<size_t>(0, 12);
    std::vector<std::vector<float>> lChannels(*rc::gen::inRange<size_t>(0, 4));
    Bytes cBytes;
    cBytes.u32(0xBA5EBA4D).u32(lChannels.empty() ? 0 : static_cast<uint32_t>(uSamples));
    cBytes.u32(static_cast<uint32_t>(lChannels.size()));
    for (auto& lSamples : lChannels) {
        lSamples = anyFloats(uSamples);
        cBytes.floats(lSamples);
    }
    return {makeBaseband(anyFields(), lChannels), cBytes.text(), lChannels.empty() ? 0 : uSamples};
}

void expectRecorded(Modelled (*pMake)()) {
    vnktest::TempFolder cFolder;
    std::string expected;
    uint64_t uSamples = 0;
    uint32_t uFrames = 0;
    std::string type;
    auto cFile = makeReference<StreamOutputFile>(cFolder.path("x.json"), nullptr);
    for (auto uLeft = *rc::gen::inRange<uint32_t>(1, 30); uLeft; --uLeft) {
        const Modelled cOne = pMake();
        type = cOne.mcFrame->getTypeName();
        expected += cOne.mcBytes;
        uSamples += cOne.muSamples;
        ++uFrames;
        RC_ASSERT(cFile->addFrame(cOne.mcFrame));
    }
    cFile = nullptr;
    RC_ASSERT(readWhole(cFolder.file("x.data")) == expected);
    const auto cRecord = parseRecord(readWhole(cFolder.file("x.json")));
    RC_ASSERT(cRecord.getText("DataType") == type);
    const utils::VariantRecord& cSummary = *cRecord.find(type)->getRecord();
    if (type == "Spectrum")
        RC_ASSERT(cSummary.find("Frames")->getUnsigned32() == uFrames);
    else
        RC_ASSERT(cSummary.find("Samples")->getUnsigned64() == uSamples);
}

}  // namespace

RC_GTEST_PROP(StreamOutputFileProperty, iqFramesAreRecordedAsTheModelWritesThem, ()) {
    expectRecorded(anyIQ);
}
RC_GTEST_PROP(StreamOutputFileProperty, spectraAreRecordedAsTheModelWritesThem, ()) {
    expectRecorded(anySpectrum);
}
RC_GTEST_PROP(StreamOutputFileProperty, basebandFramesAreRecordedAsTheModelWritesThem, ()) {
    expectRecorded(anyBaseband);
}
