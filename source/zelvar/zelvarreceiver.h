#pragma once

#include <memory>

#include "flows/iqframesink.h"
#include "flows/spectrumframesink.h"
#include "foundations/guardedreference.h"
#include "foundations/thread.h"
#include "links/zelvar-vita49protocol.h"
#include "receivers/commandchannel.h"
#include "receivers/enginecontext.h"
#include "receivers/enginescheduler.h"
#include "receivers/ifbwflatten.h"
#include "receivers/receiverdevice.h"
#include "zelvar/modeltable.h"

class ZelvarStatus;

/// The device object of the first family: links, commands, parameters, and one radio for all its streams.
///
/// The constructor runs the whole opening on the caller's thread; isOpen tells how it went. The receiver thread
/// programs captures, the polling thread brings packets. The end waits at most 2000 ms for the thread and is
/// otherwise left to it.
class ZelvarReceiver final : public ReceiverDevice,
                             public utils::Thread,
                             public VITA49ZelvarProtocol::Listener,
                             private EngineHost {
 public:
    /// May throw utils::RuntimeErrors::Error ("Only TCP/IP currently supported for Zelvar").
    ZelvarReceiver(std::string connectionType, std::string host, bool bHiSLIP);
    ~ZelvarReceiver() override;

    // Device
    utils::VariantRecord getParameterInfo() override;
    utils::VariantRecord getParameters() override;
    void setParameters(utils::VariantRecord& cRecord, ErrorList& lErrors) override;
    bool isOpen() override { return mbOpen.load(std::memory_order_relaxed); }
    bool reopen() override;
    bool sendRawCommand(const std::string& text) override;
    bool queryRaw(const std::string& query, std::string& reply) override;

    // ReceiverDevice
    bool testLink() override;
    FloatRange centreRange() const override;
    FloatRange sweepRange() const override;
    FloatRange rbwRange() const override;
    FloatRange ifbwRange() const override;
    FloatRange referenceLevelRange() const override;

    // FrameSource
    bool attachFrameSink(ReferencePtr<FrameSink> cNewSink, ErrorList& lErrors) override;
    bool removeFrameSink(ReferencePtr<FrameSink> cSink) override;

    // VITA49ZelvarProtocol::Listener, on the polling thread
    void handleReceiverContext(ReferencePtr<VITA49Zelvar::ReceiverContext> cPacket) override;
    void handleDigitizerContext(ReferencePtr<VITA49Zelvar::DigitizerContext> cPacket) override;
    void handleExtensionContext(ReferencePtr<VITA49Zelvar::ExtensionContext> cPacket) override;
    void handleIFDataIQ14(ReferencePtr<VITA49Zelvar::IFDataIQ14> cPacket) override;
    void handleIFDataI14(ReferencePtr<VITA49Zelvar::IFDataI14> cPacket) override;
    void handleIFDataI24(ReferencePtr<VITA49Zelvar::IFDataI24> cPacket) override;

 protected:
    void destroySelf() noexcept override;
    void run() override;

 private:
    void openUnit(bool bHiSLIP);
    bool _open(bool bHiSLIP);
    bool openRaw();
    bool identify();
    void readOptions();
    void readCorrectionData();
    bool startLate();
    void letGoOfLink();
    void handToEngines(const ReferencePtr<VITA49ZelvarProtocol>& cProtocol);
    void attachStream(const ReferencePtr<IQFrameSink>& cSink, ErrorList& lMessages);
    void _attachSpectrumStream(const ReferencePtr<SpectrumFrameSink>& cSink, ErrorList& lMessages);
    ReferencePtr<ZelvarReceiver> holdSelf();
    template <typename Call>
    void dispatch(const char* pUnexpected, Call call);

    // EngineHost
    bool recoverAccess() override;
    void idle() override;
    void wake() override;
    bool inhibitsContinuousSweep() const override;

    using DataLink = GuardedReference<VITA49ZelvarProtocol>;

    DataLink mcDataProtocol;
    // The engines' view of it, of which they hold a share: an engine may outlive the receiver for a moment.
    std::shared_ptr<DataLink> mcEngineLink;
    ReferencePtr<CommandChannel> mcChannel;
    ReferencePtr<EngineContext> mcContext;
    std::atomic<bool> mbOpen{false};
    std::atomic<bool> mbI14Seen{false};
    std::atomic<bool> mbInhibitContinuousSweep{false};
    bool mbOption003 = false;
    // Written during the opening, only read afterwards.
    ModelRecord mcModel{};
    utils::VariantRecord mcStoredParameters;
    std::unique_ptr<ZelvarStatus> mcStatus;
    ReferencePtr<_IFBWFlatten> mcFlatten;
    EngineScheduler mcScheduler;
    utils::NamedLock mcReopenLock{"ZelvarReceiver::mcReopenLock"};   // one reopen at a time
};
