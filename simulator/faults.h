#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/hislipfaults.h"

namespace vnksim {

/// What a unit does when it dies: its connections are closed or reset and it listens no more, or it goes
/// on holding all connections and does nothing.
enum class Death { close, reset, silent };

/// An error put into the error queue when a command that contains `command` has been received.
struct PlantedError {
    std::string command;
    int number = -200;
    std::string text = "Execution error";
    int times = 1;  ///< how often; negative means always
};

/// The state of all faults. Texts that name a command match any single command (between ";") that
/// contains them, whatever the case. Numbers named `...Once` fall back to 0 when they have acted.
struct FaultSettings {
    // --- SCPI
    bool silent = false;             ///< neither reads nor answers: connections are half-open
    std::string noReplyTo;           ///< queries that contain it get no reply; "*" is every query
    unsigned replyDelayMs = 0;       ///< each reply comes late
    std::string replyDelayFor;       ///< ... only to commands that contain it; empty: all
    unsigned replySegmentBytes = 0;  ///< replies are cut into segments of so many bytes
    std::map<std::string, std::string> wrongReplies;  ///< command text -> reply, sent as it stands plus LF
    std::vector<PlantedError> errors;
    /// The lock is refused: "never" granted, or until an "abort", a "rst" or a "reconnect" has come,
    /// which also empties this text.
    std::string lockRefusedUntil;
    std::string stuckMode;  ///< capture mode that is reported in place of the real one
    unsigned stuckFreedAtReset =
        0;  ///< the n-th *RST or ABORT from now frees it (counted down); 0: none does
    bool scpiNotListening = false;
    bool dataNotListening = false;
    bool closeScpiOnce = false;
    bool resetScpiOnce = false;
    unsigned dieAfterExchanges = 0;  ///< counted from when it was set; 0: never
    Death death = Death::close;

    // --- HiSLIP; of the above, what becomes of commands and replies holds there too
    HislipFaults hislip{};            ///< by message
    bool hislipNotListening = false;  ///< nobody on TCP 4880 ...
    bool vendorNotListening = false;  ///< ... nor on TCP 4881
    bool closeHislipOnce = false;     ///< the connections of all sessions; data connections stay
    bool resetHislipOnce = false;
    bool hislipLockRefused = false;
    unsigned hislipLockRefusedOnce = 0;  ///< so many requests are refused

    // --- data
    bool closeDataOnce = false;
    bool resetDataOnce = false;
    bool identifierMissing = false;    ///< no ExtensionContext at all
    int identifierOffset = 0;          ///< added to the identifier that is sent
    bool sweepIdentifierOnly = false;  ///< a list's context carries no stream identifier
    unsigned dropEvery = 0;            ///< each n-th data packet is not sent
    unsigned dropOnce = 0;             ///< so many data packets are not sent
    unsigned loseSamplesOnce = 0;      ///< so many samples are skipped; the next packet tells of the loss
    bool swapOnce = false;             ///< two neighbouring data packets change places
    unsigned repeatOnce = 0;           ///< so many data packets are sent twice, with one count and one time
    unsigned segmentBytes = 0;         ///< the stream is cut into segments of so many bytes
    unsigned garbageBytes = 0;         ///< garbage in front of each packet
    int sizeFieldOffset = 0;           ///< added to the size field of each data packet
    int sizeFieldOffsetOnce = 0;       ///< added to that of one data packet
    uint32_t trailerSet = 0;           ///< bits set in each data trailer
    uint32_t trailerClear = 0;         ///< bits cleared, before `trailerSet`
    bool spectralInversion = false;    ///< SH data mirrored about the IF (IQ: conjugated), and flagged so
    bool dataAfterStop = false;        ///< stops and ABORT do not end the stream
    bool contextMissing = false;       ///< no context but the ExtensionContext
    bool contextTsm = false;           ///< contexts have the bit of the time stamp mode
    bool dataWithoutStream = false;    ///< data packets are of type 0 and have no stream ID
    int dataStreamOffset = 0;          ///< added to the stream ID of data packets
    /// The number of the one field of the payload format (second family) that is wrong: 1 size of an item,
    /// 2 room that it takes, 3 channel tag, 4 event tag, 5 repeated components, 6 encoding, 7 kind of sample,
    /// 8 packing, 9 vector size, 10 repeat count. 0: none is.
    unsigned payloadFormat = 0;

    // --- blocks of a list: a setting with its contexts and all its packets
    unsigned loseBlockEvery = 0;    ///< each n-th block is not sent
    unsigned loseBlockOnce = 0;     ///< so many blocks are not sent
    unsigned repeatBlockEvery = 0;  ///< each n-th block is sent twice
    unsigned repeatBlockOnce = 0;   ///< so many blocks are sent twice
    bool swapBlocksOnce = false;    ///< two neighbouring blocks of one pass change places
    int blockShiftKHz = 0;          ///< added to the frequency that each block's context tells
    int blockShiftOnceKHz = 0;      ///< added to that of one block
    unsigned lateBlockOnceMs = 0;   ///< one block comes so much later, and what follows it
    unsigned shortPacketEvery = 0;  ///< each n-th packet of a list is a whole one of 32 samples less
    unsigned shortPacketOnce = 0;   ///< so many packets are
    bool frequencyMissing = false;  ///< no ReceiverContext; an IFContext without the field
    unsigned invertedEntries = 0;   ///< bit k: SH data of the list's entry k + 1 mirrored, and flagged so
    unsigned invertedFromMHz = 0;   ///< the same for centres from here ...
    unsigned invertedBelowMHz = 0;  ///< ... to below here
};

/// The faults of a running unit. Safe from any thread; changes act at once.
class Faults {
 public:
    FaultSettings snapshot() const;
    void change(const std::function<void(FaultSettings&)>& edit);
    void clear();
    /// "NAME", "NAME,VALUE" or "clear". Names are those of the fields of FaultSettings; a missing value
    /// switches on. For wrongReplies the value is COMMAND=REPLY, for errors COMMAND=NUMBER=TEXT, for
    /// death close, reset or silent, for hislip MESSAGE,KEY=VALUE,... Case does not count. False when it is
    /// not understood.
    bool apply(std::string_view text);
    /// Called after each change.
    void onChange(std::function<void()> sink);

 private:
    mutable std::mutex mcLock;
    FaultSettings mcSettings;
    std::function<void()> mcSink;
};

/// Trailer bits: enable and indicator of each event.
namespace trailer {
inline constexpr uint32_t kValidDataEnable = 1u << 30, kValidData = 1u << 18;
inline constexpr uint32_t kReferenceLockEnable = 1u << 29, kReferenceLock = 1u << 17;
inline constexpr uint32_t kInversionEnable = 1u << 26, kInversion = 1u << 14;
inline constexpr uint32_t kOverRangeEnable = 1u << 25, kOverRange = 1u << 13;
inline constexpr uint32_t kSampleLossEnable = 1u << 24, kSampleLoss = 1u << 12;
}  // namespace trailer

}  // namespace vnksim
