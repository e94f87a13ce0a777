#include "receivers/device.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "receivers/devicetype.h"
#include "receivers/probe.h"

namespace {

class PlainDevice : public Device {
 public:
    explicit PlainDevice(bool bOpen = true, bool bThrow = false)
        : Device("TCP/IP", "10.0.0.1"), mbOpen(bOpen) {
        ++siAlive;
        if (bThrow) {
            --siAlive;
            throw std::runtime_error("no");
        }
    }
    ~PlainDevice() override { --siAlive; }
    utils::VariantRecord getParameterInfo() override { return {}; }
    utils::VariantRecord getParameters() override { return {}; }
    void setParameters(utils::VariantRecord&, ErrorList&) override {}
    bool sendRawCommand(const std::string&) override { return false; }
    bool queryRaw(const std::string&, std::string&) override { return false; }
    bool isOpen() override { return mbOpen; }
    static inline int siAlive = 0;

 private:
    bool mbOpen;
};

class NamedType : public DeviceType {
 public:
    NamedType(std::string name, std::string accepted, bool bOpens)
        : DeviceType(std::move(name)), mcAccepted(std::move(accepted)), mbOpens(bOpens) {}
    bool accepts(const std::string& model) const override { return model == mcAccepted; }
    ReferencePtr<Device> create(const std::string&, const std::string&) override {
        ++miCreated;
        return openOrForget(makeReference<PlainDevice>(mbOpens));
    }
    int miCreated = 0;

 private:
    std::string mcAccepted;
    bool mbOpens;
};

}  // namespace

TEST(Device, TheGlobalListKeepsADeviceAliveUntilItIsForgotten) {
    const size_t uBefore = Device::listedCount();
    auto* pDevice = new PlainDevice;
    EXPECT_EQ(Device::listedCount(), uBefore + 1);
    EXPECT_EQ(pDevice->referenceCount(), 1u);
    { const ReferencePtr<Device> cHeld(pDevice); }
    EXPECT_EQ(PlainDevice::siAlive, 1);
    Device::forget(pDevice);
    EXPECT_EQ(PlainDevice::siAlive, 0);
    EXPECT_EQ(Device::listedCount(), uBefore);
}

TEST(Device, ForgettingTwiceTakesOneReference) {
    const ReferencePtr<Device> cDevice(new PlainDevice);
    Device::forget(cDevice.get());
    Device::forget(cDevice.get());
    EXPECT_EQ(cDevice->referenceCount(), 1u);
}

TEST(Device, ADeviceWhoseConstructorThrowsLeavesNothingInTheList) {
    const size_t uBefore = Device::listedCount();
    EXPECT_THROW(new PlainDevice(true, true), std::runtime_error);
    EXPECT_EQ(Device::listedCount(), uBefore);
    EXPECT_EQ(PlainDevice::siAlive, 0);
}

TEST(Device, DescribesItselfByTypeAndConnection) {
    const ReferencePtr<Device> cDevice(new PlainDevice);
    Device::forget(cDevice.get());
    utils::VariantRecord cIdentity = parseIdentity("Maker,ZV100-A 1.2,1234,3.4.5\r\n");
    cIdentity.set("other", "stays");
    cDevice->applyIdentity(cIdentity);
    EXPECT_EQ(cIdentity.keys(), std::list<std::string>{"other"});
    EXPECT_EQ(
        cDevice->describe().toCompactText(),
        R"({"connection":"TCP/IP:10.0.0.1","firmware":"3.4.5","serial":"1234","type":"ZV100-A","version":"1.2"})");
}

TEST(Device, AnIdentityInANestedRecordIsTakenWithIt) {
    const ReferencePtr<Device> cDevice(new PlainDevice);
    Device::forget(cDevice.get());
    utils::VariantRecord cOuter(R"({"device":{"type":"inner","serial":"7"},"type":"outer","kept":"x"})");
    cDevice->applyIdentity(cOuter);
    EXPECT_EQ(cDevice->type(), "inner");
    EXPECT_FALSE(cOuter.find("device"));
    // A key that the nested record gave is taken from the record as well.
    EXPECT_FALSE(cOuter.find("type"));
    EXPECT_TRUE(cOuter.find("kept"));
}

TEST(Device, AnIdentityOfAnotherKindLeavesTheFieldAsItWas) {
    const ReferencePtr<Device> cDevice(new PlainDevice);
    Device::forget(cDevice.get());
    utils::VariantRecord cIdentity(R"({"type":5,"serial":"1"})");
    cDevice->applyIdentity(cIdentity);
    EXPECT_EQ(cDevice->type(), "");
    EXPECT_TRUE(cIdentity.find("type"));
    EXPECT_FALSE(cIdentity.find("serial"));
}

TEST(Device, ATextUnderTheKeyDeviceIsNoIdentity) {
    const ReferencePtr<Device> cDevice(new PlainDevice);
    Device::forget(cDevice.get());
    utils::VariantRecord cRecord(R"({"device":"unreachable","type":"T"})");
    cDevice->applyIdentity(cRecord);
    EXPECT_EQ(cDevice->type(), "T");
    EXPECT_TRUE(cRecord.find("device"));
}

TEST(DeviceType, TheFirstThatAcceptsCreatesAndNoOtherIsTried) {
    NamedType cFirst("test-first", "test model", false);
    NamedType cSecond("test-second", "test model", true);
    EXPECT_FALSE(DeviceType::search("test model", "TCP/IP", "x"));
    EXPECT_EQ(cFirst.miCreated, 1);
    EXPECT_EQ(cSecond.miCreated, 0);
}

TEST(DeviceType, AModelThatNobodyAcceptsYieldsNoDevice) {
    NamedType cType("test-type", "test model", true);
    EXPECT_FALSE(DeviceType::search("another model", "TCP/IP", "x"));
    EXPECT_EQ(cType.miCreated, 0);
}

TEST(DeviceType, TypesAreListedInOrderOfRegistrationWhileTheyLive) {
    const auto lBefore = DeviceType::names();
    {
        NamedType cFirst("test-a", "", true);
        NamedType cSecond("test-b", "", true);
        auto lNames = DeviceType::names();
        ASSERT_EQ(lNames.size(), lBefore.size() + 2);
        EXPECT_EQ(lNames.back(), "test-b");
        lNames.pop_back();
        EXPECT_EQ(lNames.back(), "test-a");
    }
    EXPECT_EQ(DeviceType::names(), lBefore);
}

TEST(DeviceType, ADeviceThatDidNotOpenIsForgotten) {
    const size_t uBefore = Device::listedCount();
    NamedType cClosed("test-closed", "closed model", false);
    for (int i = 0; i < 100; ++i)
        EXPECT_FALSE(DeviceType::search("closed model", "TCP/IP", "x"));
    EXPECT_EQ(Device::listedCount(), uBefore);
    EXPECT_EQ(PlainDevice::siAlive, 0);
}

TEST(DeviceType, ADeviceThatOpenedStaysListed) {
    NamedType cType("test-open", "open model", true);
    const size_t uBefore = Device::listedCount();
    const ReferencePtr<Device> cDevice = DeviceType::search("open model", "TCP/IP", "x");
    ASSERT_TRUE(cDevice);
    EXPECT_EQ(Device::listedCount(), uBefore + 1);
    Device::forget(cDevice.get());
}
