#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "simulator/faults.h"
#include "simulator/journal.h"
#include "simulator/scene.h"

namespace vnksim {

inline constexpr uint16_t kScpiPort = 37001;
inline constexpr uint16_t kDataPort = 37000;
inline constexpr uint16_t kDiscoveryPort = 18331;

enum class Pace {
    realTime,  ///< a packet leaves when its last sample has been taken, never earlier
    limited,   ///< the same at `rateLimit` samples per second
    flatOut    ///< as fast as the socket takes them
};

/// The two sets of correction data, as the unit serves them, byte for byte.
struct CorrectionData {
    std::vector<uint8_t> signal;
    std::vector<uint8_t> noise;
    /// Answers to the SIZE queries; negative: the real sizes.
    int64_t signalSize = -1;
    int64_t noiseSize = -1;
};

/// A well-formed set: `rows` pairs of frequency in kHz and vector index, and vectors of points, all of
/// one length, in millionths of a dB of loss.
std::vector<uint8_t> makeCorrectionSet(const std::vector<std::pair<uint32_t, uint16_t>>& rows,
                                       const std::vector<std::vector<int32_t>>& vectors);
/// The sets of a unit that is told nothing else: a gentle ripple, seeded.
CorrectionData defaultCorrectionData(uint64_t seed);
/// The gain in dB that a well-formed set undoes, as a function of the tuned centre (0 in direct digitization)
/// and of the frequency in the sampled band: that of the first row above the centre, linear between its
/// points. `bandHz` is the width of that band: 62.5 MHz in the first family.
std::function<double(double tunedHz, double placeHz)> gainOfCorrections(const std::vector<uint8_t>& set,
                                                                        double bandHz = 62.5e6);

struct UnitOptions {
    std::string address = "127.0.0.1";
    std::string model = "ZV150-C";
    std::string version = "1.0";
    std::string serial = "SIM00001";
    std::string firmware = "2.8.1";
    std::string installedOptions = "000";  ///< reply to SYSTem:OPTions?
    uint64_t seed = 1;
    Pace pace = Pace::realTime;
    double rateLimit = 0;  ///< samples per second, for Pace::limited
    /// Off unless wanted: a socket on UDP 18331 keeps a host program on the same machine from using it.
    bool discovery = false;
    bool hislip = true;         ///< HiSLIP on TCP 4880, and its data connections on TCP 4881
    bool discoveryAny = false;  ///< listen on any address, so that broadcasts are heard
    /// Number of data packets that are made once and then sent round and round; 0: none. Of a list, so many
    /// from its first one on repeat in each pass. For benchmarks: headers and times run on, the samples
    /// repeat.
    unsigned preSynthesise = 0;
    /// Packets that may wait for the socket.
    unsigned queuedPackets = 3;
    int sendBufferBytes = 512 * 1024;
    bool dither = true;  ///< keep the noise before quantisation at 0.4 counts rms or more
    /// The range that a unit of the second family tunes and tells.
    double lowestHz = 9e3, highestHz = 27e9;
    double latitude = 45.3333, longitude = -75.9, altitude = 160;
    CorrectionData corrections = defaultCorrectionData(1);
    /// Gain in dB on the way to the digitizer, by tuned centre (0 in direct digitization) and frequency in
    /// the sampled band (35 MHz is the tuned centre, in the second family 61.44 MHz). None: flat. Wide
    /// emitters have that at their middle; noise arises behind it.
    std::function<double(double tunedHz, double placeHz)> ifGaindB;
};

struct SweepEntry {
    bool directDigitization = false;
    uint64_t centreFirst = 100000000, centreLast = 100000000, centreStep = 0;
    uint32_t samplesPerPacket = 1024, packetsPerBlock = 1, decimation = 1;
    unsigned attenuation = 0;
};

/// A copy of what the unit stands at.
struct UnitState {
    std::string captureMode;  ///< "BLOCK", "STREAMING" or "SWEEPING"
    bool directDigitization = false;
    double centreHz = 0;
    uint32_t decimation = 1;  ///< 1: off
    uint32_t samplesPerPacket = 0;
    unsigned attenuation = 0;
    bool gain1 = true, gain2 = true;
    double referenceLevelDbm = 0;  ///< what contexts report
    std::vector<SweepEntry> list;
    uint32_t iterations = 1;  ///< 0: endless
    uint32_t identifier = 0;  ///< of the newest capture
    uint64_t capturesStarted = 0;
    uint64_t dataPackets = 0;  ///< made, all captures
    uint64_t samples = 0;
    unsigned scpiConnections = 0, dataConnections = 0;  ///< open now; the latter of both ports
    unsigned hislipSessions = 0;                        ///< with both of their connections
    std::string pll, pps, timeSync, ntpServers, constellation;
    int antennaDelay = 0;
    unsigned dynamicMode = 2;
    size_t errors = 0;
};

/// Reference level that a unit of the first family reports, in dBm: -20 with both gain stages on, 10 more for
/// each stage that is off (models without stages count as both on), plus the attenuation in dB.
double referenceLevelDbm(const std::string& model, bool gain1, bool gain2, unsigned attenuation);

/// The second family has complex samples only, its own rate, and one setting of the level.
enum class Family { first, second };

/// Names of the models that can be simulated, of the first family before those of the second.
std::vector<std::string> modelNames();
std::vector<std::string> modelNames(Family family);
/// Throws std::invalid_argument on an unknown model.
Family familyOf(const std::string& model);
/// Width of the band that a family's converter sees, which is what correction data are for.
double sampledBandHz(Family family);

/// A simulated unit: SCPI on TCP 37001, packets on TCP 37000, HiSLIP on TCP 4880 with packets on TCP 4881,
/// discovery on UDP 18331, all at one address.
/// It can be started and stopped any number of times; stop() leaves no thread and no descriptor.
class Unit {
 public:
    /// Throws std::invalid_argument on an unknown model.
    explicit Unit(UnitOptions options, Scene scene = {});
    ~Unit();
    Unit(const Unit&) = delete;
    Unit& operator=(const Unit&) = delete;

    /// Throws std::system_error when an address or port cannot be taken.
    void start();
    void stop();
    bool running() const;

    const UnitOptions& options() const;
    Faults& faults();
    Journal& journal();
    /// Every HiSLIP message received, as "sync DataEnd 0 0xffffff00 6": connection ("sync", "async" or
    /// "vendor"), name, control code, parameter, payload bytes.
    Journal& hislipMessages();
    UnitState state() const;
    /// Takes effect with the next capture.
    void setScene(Scene scene);
    void setCorrections(CorrectionData corrections);
    /// Puts an error into the unit's queue.
    void pushError(int number, const std::string& text);
    /// Waits until the capture mode is `mode`.
    bool waitForMode(const std::string& mode, std::chrono::milliseconds limit) const;

 private:
    class Impl;
    std::unique_ptr<Impl> mpImpl;
};

}  // namespace vnksim
