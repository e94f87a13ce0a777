#pragma once

#include <memory>

#include "flows/iqframesink.h"
#include "flows/spectrumframesink.h"
#include "foundations/thread.h"
#include "receivers/commandchannel.h"
#include "receivers/enginecontext.h"
#include "receivers/enginescheduler.h"
#include "receivers/ifbwflatten.h"
#include "receivers/receiverdevice.h"

class UnitStatus;

/// Texts by which the families' receivers differ.
struct ReceiverWords {
    const char* mpName;             // "ZelvarReceiver"
    const char* mpReopenLock;       // "ZelvarReceiver::mcReopenLock"
    const char* mpTCPIPOnly;        // "Only TCP/IP currently supported for Zelvar"
    const char* mpThreadExits;      // "ZelvarReceiverThread exits"
    const char* mpIdleBegins;       // "run into wait"
    const char* mpIdleEnds;         // "run exit wait"
    const char* mpIQRefused;        // "Cannot implement IQ stream"
    const char* mpSpectrumRefused;  // "Spectrum stream attach failed"
    CommandWords mcCommands;
    SchedulerWords mcScheduler;
    CorrectionCommands mcCorrections;
};

/// What the families' receivers share: opening and reopening of both kinds of links, commands, parameters, status,
/// and one radio for all streams. A family knows its models, its packets and its engines.
///
/// The constructor of a family runs the whole opening on the caller's thread; isOpen tells how it went. The
/// receiver thread programs captures, the polling thread brings packets. The end waits at most 2000 ms for the
/// thread and is otherwise left to it.
class RadioReceiver : public ReceiverDevice, public utils::Thread, private EngineHost {
 public:
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
    FloatRange sweepRange() const override { return centreRange(); }

    // FrameSource
    bool attachFrameSink(ReferencePtr<FrameSink> cNewSink, ErrorList& lErrors) override;
    bool removeFrameSink(ReferencePtr<FrameSink> cSink) override;

 protected:
    RadioReceiver(std::string connectionType, std::string host, const ReceiverWords& cWords);
    ~RadioReceiver() override;

    /// The whole opening; the last thing that the constructor of a family does. May throw
    /// utils::RuntimeErrors::Error (the words' mpTCPIPOnly).
    void openUnit(bool bHiSLIP);
    /// The first thing that the destructor of a family does: nothing of it is called from then on.
    void endReceiver();

    // What a family does in its own way.
    /// Takes what it needs of its model. False, with a report, for a unit that is none of its own.
    virtual bool takeModel(const std::string& type) = 0;
    virtual float sampleRate() const = 0;
    /// Where the parameter InhibitContinuousSweep is kept; null in a family without it.
    virtual std::atomic<bool>* inhibitFlag() { return nullptr; }
    virtual ReferencePtr<IQEngine> makeIQEngine(const ReferencePtr<IQFrameSink>& cSink,
                                                const StreamRanges& cRanges) = 0;
    virtual ReferencePtr<SweepEngine> makeSweepEngine(const ReferencePtr<SpectrumFrameSink>& cSink,
                                                      const StreamRanges& cRanges) = 0;
    // Its data protocol.
    virtual void makeDataProtocol(ReferencePtr<Transport> cTransport) = 0;
    virtual bool isDataProtocolOpen() const = 0;
    virtual void listen() = 0;
    /// No packet reaches the receiver any more, and the protocol is let go.
    virtual void dropDataProtocol() = 0;
    /// The engines' view of it: the present one, or none.
    virtual void shareDataProtocol(bool bPresent) = 0;

    void destroySelf() noexcept override;
    void run() override;

    EngineScheduler& scheduler() { return mcScheduler; }
    UnitStatus& status() { return *mcStatus; }
    CommandChannel& channel() { return *mcChannel; }
    const ReferencePtr<EngineContext>& context() const { return mcContext; }
    /// Null: the unit has no correction data.
    const ReferencePtr<_IFBWFlatten>& flattening() const { return mcFlatten; }

 private:
    bool _open(bool bHiSLIP);
    bool openRaw();
    bool openHiSLIP();
    bool openData(ReferencePtr<Transport> cTransport);
    bool identify();
    void readOptions();
    void readCorrectionData();
    bool startLate();
    void letGoOfLink();
    void attachStream(const ReferencePtr<IQFrameSink>& cSink, ErrorList& lMessages);
    void _attachSpectrumStream(const ReferencePtr<SpectrumFrameSink>& cSink, ErrorList& lMessages);

    // EngineHost
    bool recoverAccess() override;
    void idle() override;
    void wake() override;
    bool inhibitsContinuousSweep() override;

    ReceiverWords mcWords;
    ReferencePtr<CommandChannel> mcChannel;
    ReferencePtr<EngineContext> mcContext;
    std::atomic<bool> mbOpen{false};
    bool mbOption003 = false;
    // Written during the opening, only read afterwards.
    utils::VariantRecord mcStoredParameters;
    std::unique_ptr<UnitStatus> mcStatus;
    ReferencePtr<_IFBWFlatten> mcFlatten;
    EngineScheduler mcScheduler;
    utils::NamedLock mcReopenLock;   // one reopen at a time
};
