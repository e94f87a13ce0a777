#include "receivers/receiverdevice.h"

ReceiverDevice::ReceiverDevice(std::string connectionType, std::string address, std::string sourceName)
    : Device(std::move(connectionType), std::move(address)),
      FrameSource(std::move(sourceName)),
      mcLinkWatch(makeReference<LinkWatch>()) {}

void ReceiverDevice::checkLink() {
    if (!mcLinkWatch->isTestDue())
        return;
    mcLinkWatch->countProbe();
    if (testLink())
        mcLinkWatch->stamp();
}

StreamRanges ReceiverDevice::streamRanges() const {
    return {centreRange(), sweepRange(), rbwRange(), ifbwRange(), referenceLevelRange()};
}
