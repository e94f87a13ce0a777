#include "foundations/statustext.h"

#include <iterator>

namespace utils {

// Indexed by the negated status.
static constexpr const char* kErrorTexts[] = {
    "No error",
    "Unimplemented",
    "API not initialized",
    "Device address already known",
    "Unallocated user data",
    "Device index out of range",
    "No device information available",
    "Cannot open device",
    "Bad device handle",
    "Bad entity handle",
    "Bad parameter name",
    "Missing parameter",
    "Bad parameter",
    "Invalid parameter",
    "Bad receiver handle",
    "Failed to start IQ stream",
    "Memory allocation error",
    "Invalid stream handle",
    "No associated receiver (internal)",
    "Not an IQ stream",
    "No data specified",
    "Invalid handle specified",
    "Bad stream shutdown (internal)",
    "Parameter in call is not currently used. Initialize to NULL only.",
    "Attempt to close strema failed",
    "Stream identifier passed is not a spectrum stream",
    "Attempt to restart stream failed",
    "Attempt to start sweep failed",
    "Internal error. frame type mismatch.",
    "Attempt to open file failed",
    "Type of file specified is not IQ. IQ expected.",
    "Type of file specified is not Spectra. Spectra expected.",
    "Internal error. Cannot find source associated with specified stream.",
    "Parameter specified that is not known or non-writable by entity.",
    "An error was encountered when attempting to set one or more parameters",
    "Device handle specified is not valid.",
    "Attempt to send SCPI command failed.",
    "Attempt to execute SCPI query failed.",
    "Bad stream handle.",
    "Failed to attach IQ Stream.",
    "Failed to attach Spectrum Stream.",
    "Failed to attach Stream.",
    "Failed to detach IQ Stream.",
    "Failed to detach Spectrum Stream.",
    "Failed to detach Stream.",
    "Failed to reset the connection to the specified device",
    "'Impossible' frequency parameters specified (ie. FStart >= FEnd)",
    "'Impossible' RBW parameter specified",
    "'Impossible' reference level parameter specified",
    "General failure to create a spectrum stream",
    "Buffer seconds parameter specified is invalid",
    "Buffer frames parameter specified is invalid",
    "Buffer discard propotion parameter specified is out of range (valid is 0.0 to 1.0)",
    "Invalid frequency range specified",
    "Invalid GNSS dynamic mode specified",
    "Invalid PLL Source parameter specified",
    "PLL source specified for a non-GNSS enabled device",
    "Centre frequency specified is invalid",
    "IFBW specified is invalid",
    "Minimum frequency specified is invalid",
    "Maximum frequency specified is invalid",
    "Resolution bandwidth specified is invalid",
    "Centre frequency specified is out of range for this device",
    "IFBW specified is out of range for this device",
    "Reference level is out-of-range for this device",
    "Resolution bandwidth is out-of-range for this device",
    "Window type specified is not supported by this device",
    "Minimum frequency specified is not supported by this device",
    "Maximum frequency specified is not supported by this device",
    "Unable to connect with device with given network address",
    "Filename passed does not specify a valid file path",
    "Failed to open specified output file for writing",
    "Expected data was found uninitialized",
    "Unknown processor handle specified",
    "Failed to create processor",
    "Attempt to attach processor to stream failed (wrong stream type?)",
    "Attempt to detach processor from source stream failed",
    "Attempt to detach processor when not attached",
    "Stream handle given is not of a baseband stream",
    "Stream file given is not a baseband file",
    "Failed to start baseband file strema from file",
    "Invalid sample rate specified",
    "Unable to obtain processor output stream handle",
    "Failed to connect output stream to processor",
    "Bad filename",
    "Window type specified is not known",
    "Device is not responding over network",
    "Internal error. Unknown stream type",
    "Stream handle is already open - attempt to re - open failed",
};

// Indexed by the status.
static constexpr const char* kWarningTexts[] = {
    "No error",
    "Waiting for packet",
    "Stream exhausted",
    "Stream not yet started",
};

static_assert(std::size(kErrorTexts) == 89 && std::size(kWarningTexts) == 4);

const char* textForStatus(int32_t iStatus) {
    if (iStatus < 0) {
        // Negated without sign, since the lowest value has no positive counterpart.
        const uint32_t uIndex = 0u - static_cast<uint32_t>(iStatus);
        return uIndex < std::size(kErrorTexts) ? kErrorTexts[uIndex] : "Error code undefined";
    }
    const auto uIndex = static_cast<uint32_t>(iStatus);
    return uIndex < std::size(kWarningTexts) ? kWarningTexts[uIndex] : "Warning code undefined";
}

}  // namespace utils
