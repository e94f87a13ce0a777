#pragma once

#include <functional>

#include "receivers/ifbwflatten.h"
#include "receivers/iqengine.h"
#include "receivers/quietwait.h"
#include "receivers/sweepengine.h"

/// Gives the present data protocol of a receiver, null while there is none.
template <typename DataProtocol>
using DataProtocolSource = std::function<ReferencePtr<DataProtocol>()>;

/// An IQ engine whose packets come by one data protocol.
template <typename DataProtocol>
class PacketIQEngine : public IQCaptureEngine, public DataProtocol::Listener {
 public:
    ~PacketIQEngine() override { releaseSinks(); }

 protected:
    PacketIQEngine(ReferencePtr<EngineContext> cContext, ReferencePtr<IQFrameSink> cStream,
                   const StreamRanges& cRanges, const IQEngineWords& cWords,
                   DataProtocolSource<DataProtocol> protocol)
        : IQCaptureEngine("_IQMechanism", std::move(cContext), std::move(cStream), cRanges, cWords),
          mcProtocol(std::move(protocol)) {}
    void drainInput() override { drainInputOf(mcProtocol); }

 private:
    DataProtocolSource<DataProtocol> mcProtocol;
};

/// A sweep engine whose packets come by one data protocol.
template <typename DataProtocol>
class PacketSweepEngine : public SweepCaptureEngine, public DataProtocol::Listener {
 public:
    ~PacketSweepEngine() override { endEngine(); }

 protected:
    /// `cFlatten` may be null: the unit has no correction data.
    PacketSweepEngine(ReferencePtr<EngineContext> cContext, ReferencePtr<SpectrumFrameSink> cStream,
                      const StreamRanges& cRanges, const SweepEngineWords& cWords,
                      DataProtocolSource<DataProtocol> protocol, ReferencePtr<_IFBWFlatten> cFlatten)
        : SweepCaptureEngine("_SweepMechanism", std::move(cContext), std::move(cStream), cRanges, cWords),
          mcFlatten(std::move(cFlatten)),
          mcProtocol(std::move(protocol)) {}
    void drainInput() override { drainInputOf(mcProtocol); }

    const ReferencePtr<_IFBWFlatten> mcFlatten;

 private:
    DataProtocolSource<DataProtocol> mcProtocol;
};
