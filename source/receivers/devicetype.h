#pragma once

#include "receivers/device.h"

/// A kind of device that can be created for a model text. The registry is filled at start-up, in the order
/// of search, and only read afterwards.
class DeviceType {
 public:
    explicit DeviceType(std::string name);
    virtual ~DeviceType();
    DeviceType(const DeviceType&) = delete;
    DeviceType& operator=(const DeviceType&) = delete;

    virtual bool accepts(const std::string& model) const = 0;
    /// An open device or null. May throw utils::RuntimeErrors::Error or utils::FatalError.
    virtual ReferencePtr<Device> create(const std::string& connectionType, const std::string& address) = 0;
    const std::string& getName() const { return mcName; }

    /// The first type that accepts creates, and no other is tried. Null when none accepts.
    static ReferencePtr<Device> search(const std::string& model, const std::string& connectionType,
                                       const std::string& address);
    static std::list<std::string> names();

 private:
    std::string mcName;
};

/// The end of every create: the device if it is open; otherwise null, and the global list has let it go.
ReferencePtr<Device> openOrForget(ReferencePtr<Device> cDevice);
