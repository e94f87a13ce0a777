#pragma once

#include "flows/framesource.h"
#include "receivers/device.h"
#include "receivers/linkwatch.h"
#include "receivers/rangechecks.h"

/// A device that is a source of frames, with a watch on its link.
class ReceiverDevice : public Device, public FrameSource {
 public:
    ReceiverDevice(std::string connectionType, std::string address, std::string sourceName);

    utils::ReferenceCountedObject* countedSelf() override { return this; }
    /// True when the unit answers and has no error.
    virtual bool testLink() = 0;
    virtual FloatRange centreRange() const = 0;
    virtual FloatRange sweepRange() const = 0;
    virtual FloatRange rbwRange() const = 0;
    virtual FloatRange ifbwRange() const = 0;
    virtual FloatRange referenceLevelRange() const = 0;

    /// Nothing has been heard from the unit for 10,001 ms.
    bool isLinkStale() const { return mcLinkWatch->isStale(); }
    void resetLinkWatch() { mcLinkWatch->stamp(); }
    const LinkWatch& linkWatch() const { return *mcLinkWatch; }
    /// Tests a link that has been silent for long; for the idle time of the run loop.
    void checkLink();
    StreamRanges streamRanges() const;

 protected:
    ReferencePtr<LinkWatch> mcLinkWatch;
};
