#pragma once

#include <list>
#include <string>

#include "flows/entity.h"
#include "foundations/namedlock.h"

/// A unit that has been opened. Every device is in one global list until its handle is closed, its creation
/// fails, or the state that holds its handle ends.
class Device : public Entity {
 public:
    Device(std::string connectionType, std::string address);
    ~Device() override;

    utils::VariantRecord getParameterInfo() override = 0;
    utils::VariantRecord getParameters() override = 0;
    void setParameters(utils::VariantRecord& cRecord, ErrorList& lErrors) override = 0;
    virtual bool isOpen() { return true; }
    /// Reconnects after the link was lost.
    virtual bool reopen() { return false; }
    virtual bool sendRawCommand(const std::string& text) = 0;
    virtual bool queryRaw(const std::string& query, std::string& reply) = 0;

    /// "type", "version", "serial", "firmware" and "connection".
    utils::VariantRecord describe() const;
    /// Takes the identity out of a record (or of its nested record "device").
    void applyIdentity(utils::VariantRecord& cRecord);

    const std::string& connectionType() const { return mcConnectionType; }
    const std::string& address() const { return mcAddress; }
    const std::string& type() const { return mcType; }

    /// Takes a device out of the global list.
    static void forget(const Device* pDevice);
    static size_t listedCount();

 private:
    std::string mcConnectionType;
    std::string mcAddress;
    std::string mcType;
    std::string mcVersion;
    std::string mcSerial;
    std::string mcFirmware;
};
