#pragma once

#include <list>
#include <string>

#include "processors/processor.h"

/// A named kind of processor. The registry is filled at start-up and only read afterwards.
class ProcessorType {
 public:
    explicit ProcessorType(std::string name);
    virtual ~ProcessorType();
    ProcessorType(const ProcessorType&) = delete;
    ProcessorType& operator=(const ProcessorType&) = delete;

    virtual ReferencePtr<Processor> create() = 0;

    /// A new processor of the type with exactly this name; null when there is none.
    static ReferencePtr<Processor> find(const std::string& name);
    /// In the order of registration.
    static std::list<std::string> names();

 private:
    std::string mcName;
};

/// The type of one class of processors, which are made without arguments.
template <typename Made>
class ProcessorTypeOf : public ProcessorType {
 public:
    using ProcessorType::ProcessorType;
    ReferencePtr<Processor> create() override { return makeReference<Made>(); }
};
