#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "receivers/enginescheduler.h"

namespace vnktest {

/// What happened, in order.
class Events {
 public:
    void add(const std::string& event) {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        mlEvents.push_back(event);
    }
    std::vector<std::string> take() {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        return std::exchange(mlEvents, {});
    }

 private:
    std::mutex mcMutex;
    std::vector<std::string> mlEvents;
};

class FakeHost : public EngineHost {
 public:
    explicit FakeHost(Events& cEvents) : mcEvents(cEvents) {}
    bool recoverAccess() override {
        mcEvents.add("recover");
        return true;
    }
    void idle() override { mcEvents.add("idle"); }
    void wake() override { ++muWakes; }
    bool inhibitsContinuousSweep() override { return mbInhibit; }
    std::atomic<uint32_t> muWakes{0};
    std::atomic<bool> mbInhibit{false};

 private:
    Events& mcEvents;
};

class FakeIQ : public IQEngine {
 public:
    FakeIQ(std::string name, Events& cEvents, ReferencePtr<FrameSink> cSink)
        : IQEngine("FakeIQ"), mcName(std::move(name)), mcEvents(cEvents) {
        mcSink.set(std::move(cSink));
    }
    ~FakeIQ() override { releaseSinks(); }
    bool serves(const FrameSink* pSink) const override { return mcSink.get().get() == pSink; }
    void takeInStream() override { add("in"); }
    bool start() override {
        add("start");
        if (!mbCanStart)
            return false;
        mbStreaming = true;
        return true;
    }
    void stop(bool bQuiesce) override {
        add(bQuiesce ? "stop(true)" : "stop(false)");
        mbStreaming = false;
    }
    bool process() override {
        add("process");
        if (!mbAskedToEnd && !mbDone)
            return true;
        mbStreaming = false;
        return false;
    }
    bool takeRestart() override { return mbRestart.exchange(false); }
    bool isStreaming() const override { return mbStreaming; }
    bool waitForEndOfVRTData() override {
        add("wait");
        return true;
    }
    bool terminate() override {
        add("terminate");
        return true;
    }
    void notifyHalted() override {
        add("halted");
        mcHalted.signal();
    }
    bool syncHaltStream() override {
        if (!mbStreaming)
            return false;
        mbAskedToEnd = true;
        return mcHalted.wait(5000000);
    }
    void linkChanged() override { add("link"); }
    bool removeFrameSink(ReferencePtr<FrameSink> cSink) override {
        mcSink.set(nullptr);
        return IQEngine::removeFrameSink(cSink);
    }
    std::atomic<bool> mbCanStart{true};
    std::atomic<bool> mbStreaming{false};
    std::atomic<bool> mbRestart{false};
    std::atomic<bool> mbDone{false};
    std::atomic<bool> mbAskedToEnd{false};

 private:
    void add(const char* pWhat) { mcEvents.add(mcName + "." + pWhat); }
    std::string mcName;
    Events& mcEvents;
    GuardedReference<FrameSink> mcSink;
    utils::Barrier mcHalted{"FakeIQ::mcHalted"};
};

class FakeSweep : public SweepEngine {
 public:
    FakeSweep(std::string name, Events& cEvents, ReferencePtr<FrameSink> cSink)
        : SweepEngine("FakeSweep"), mcName(std::move(name)), mcEvents(cEvents), mcSink(std::move(cSink)) {
        ErrorList lErrors;
        attachFrameSink(mcSink, lErrors);
    }
    ~FakeSweep() override { releaseSinks(); }
    bool serves(const FrameSink* pSink) const override { return mcSink.get() == pSink; }
    bool start(bool bContinuous) override {
        add(bContinuous ? "start(true)" : "start(false)");
        mbContinuous = bContinuous;
        return mbCanStart;
    }
    bool stop() override {
        add("stop");
        mbContinuous = false;
        return true;
    }
    bool process() override {
        add("process");
        return !mbDone;
    }
    bool runsContinuously() const override { return mbContinuous; }
    void linkChanged() override { add("link"); }
    bool parametersChanged(ReferencePtr<FrameSink>) override {
        add("changed");
        return true;
    }
    std::atomic<bool> mbCanStart{true};
    std::atomic<bool> mbDone{false};

 private:
    void add(const char* pWhat) { mcEvents.add(mcName + "." + pWhat); }
    std::string mcName;
    Events& mcEvents;
    ReferencePtr<FrameSink> mcSink;
    std::atomic<bool> mbContinuous{false};
};

}  // namespace vnktest
