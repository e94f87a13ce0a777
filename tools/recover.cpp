#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <memory>

#include "tools/options.h"
#include "tools/output.h"
#include "tools/recordingtext.h"
#include "tools/samplereport.h"
#include "tools/units.h"
#include "tools/verbs.h"

namespace cli {

namespace {

struct RecoverOptions {
    std::string name, like;
    std::optional<double> rateHz, centreHz, bandwidthHz, rbwHz, referenceDbm;
    std::string units, window, resolution;
};

/// A description made of what the user tells, another recording, the data, and assumptions, in this order.
class Rebuilding {
 public:
    Rebuilding(const RecoverOptions& options, const RecordingDescription& like, RecordingReader& reader)
        : mcOptions(options), mcLike(like), mcReader(reader), meType(*reader.type()) {
        mcDescription.dataType = toText(meType);
        mcDescription.sampling = like.sampling;
        mcDescription.source = like.source;
        mcDescription.state = DescriptionState::good;
        setResolution();
        measure();
        setSampling();
        setSummary();
    }

    const RecordingDescription& description() const { return mcDescription; }
    const RecordingSummary& summary() const { return mcSummary; }
    /// What was not told, and what was taken for it.
    const std::vector<Row>& assumed() const { return mlAssumed; }

 private:
    void setResolution() {
        std::string resolution = mcOptions.resolution;
        if (resolution.empty())
            resolution = textOf(mcLike.summary, "TimeResolution");
        if (resolution.empty() && meType != DataType::baseband)
            mlAssumed.emplace_back("time resolution", "ns (--resolution)");
        mcDescription.summary["TimeResolution"] = resolution.empty() ? "ns" : resolution;
    }

    void measure() {
        const double dRate = mcOptions.rateHz.value_or(numberOf(mcLike.sampling, "SampleRateHz").value_or(0));
        mcSummary = summarize(mcReader, mcDescription.secondsPerTick(), dRate);
        if (mcSummary.frames == 0)
            throw Failure(Exit::file, mcOptions.name + " holds no whole frame: there is nothing to play");
    }

    void setSampling() {
        if (meType != DataType::spectrum)
            setRate();
        const double dRate = numberOf(mcDescription.sampling, "SampleRateHz").value_or(0);
        setNumber("FCentreHz", "centre", mcOptions.centreHz, 0, "Hz", "--fcentre");
        setNumber("BandwidthHz", "bandwidth", mcOptions.bandwidthHz,
                  meType == DataType::baseband ? dRate / 2 : dRate, "Hz", "--bandwidth");
        setNumber("RefdBm", "reference", mcOptions.referenceDbm, 0, "dBm", "--ref");
        setText("units", mcOptions.units, meType == DataType::iq ? "sqrt-mw" : "dBm", "--units");
        if (meType == DataType::spectrum) {
            setNumber("RBWHz", "resolution", mcOptions.rbwHz, 0, "Hz", "--rbw");
            setText("WindowFn", mcOptions.window, "", "--window");
        }
        if (meType == DataType::baseband) {
            mcDescription.sampling["UsableBWHz"] = mcDescription.sampling["BandwidthHz"];
            mcDescription.sampling["Channels"] = mcSummary.first.channels;
        }
    }

    void setRate() {
        std::optional<double> rate = mcOptions.rateHz;
        if (!rate)
            rate = numberOf(mcLike.sampling, "SampleRateHz");
        if (!rate && meType == DataType::baseband) {
            rate = 44100;
            mlAssumed.emplace_back("sample rate", formatSI(*rate, "S/s") + " (--rate)");
        } else if (!rate && mcSummary.estimatedRateHz) {
            // As a description stores it.
            rate = static_cast<double>(static_cast<float>(*mcSummary.estimatedRateHz));
            mlAssumed.emplace_back("sample rate", formatSI(*rate, "S/s") + ", by the times of " +
                                                      formatCount(mcSummary.frames, "frame") + " (--rate)");
        }
        if (!rate)
            throw Failure(Exit::usage, "the data do not tell their sample rate: give --rate, or --like");
        mcDescription.sampling["SampleRateHz"] = *rate;
    }

    void setNumber(const char* key, const std::string& label, const std::optional<double>& told,
                   double otherwise, const std::string& unit, const std::string& option) {
        if (told)
            mcDescription.sampling[key] = *told;
        if (numberOf(mcDescription.sampling, key))
            return;
        mcDescription.sampling[key] = otherwise;
        mlAssumed.emplace_back(label, formatSI(otherwise, unit) + " (" + option + ")");
    }

    void setText(const char* key, const std::string& told, const std::string& otherwise,
                 const std::string& option) {
        if (!told.empty())
            mcDescription.sampling[key] = told;
        if (mcDescription.sampling.contains(key))
            return;
        mcDescription.sampling[key] = otherwise;
        mlAssumed.emplace_back(key, (otherwise.empty() ? "none" : otherwise) + " (" + option + ")");
    }

    void setSummary() {
        nlohmann::json& summary = mcDescription.summary;
        const double dTick = mcDescription.secondsPerTick();
        const double dRate = numberOf(mcDescription.sampling, "SampleRateHz").value_or(0);
        summary["Encoding"] = meType == DataType::iq         ? "Complex<_float32> LE"
                              : meType == DataType::spectrum ? "_float32 LE"
                                                             : "_float32";
        summary["StartTimestamp"] = toNanoseconds(mcSummary.first.timestamp, dTick);
        summary["EndTimestamp"] = endNanoseconds(mcSummary, dTick, dRate);
        if (meType == DataType::baseband)
            setTimesByFile(dRate);
        if (meType == DataType::spectrum) {
            summary["PointsPerFrame"] = mcSummary.last.count;
            summary["Frames"] = mcSummary.frames;
        } else {
            summary["Samples"] = mcSummary.samples;
        }
    }

    /// Baseband data carry no time: the last one was written when the file was.
    void setTimesByFile(double rateHz) {
        const uint64_t uEnd = mcReader.modifiedNanoseconds();
        const double dLength = std::round(static_cast<double>(mcSummary.samples) / rateHz * 1e9);
        const uint64_t uLength = dLength < static_cast<double>(uEnd) ? static_cast<uint64_t>(dLength) : uEnd;
        mcDescription.summary["StartTimestamp"] = uEnd - uLength;
        mcDescription.summary["EndTimestamp"] = uEnd;
        mlAssumed.emplace_back("end", formatTime(uEnd) + ", when the file was last written");
    }

    const RecoverOptions& mcOptions;
    const RecordingDescription& mcLike;
    RecordingReader& mcReader;
    DataType meType;
    RecordingDescription mcDescription;
    RecordingSummary mcSummary;
    std::vector<Row> mlAssumed;
};

/// Writes what is not there, or empty; nothing else is touched.
void writeDescription(const std::string& path, const std::string& text) {
    struct stat status {};
    const bool bNew = ::lstat(path.c_str(), &status) != 0;
    const int iFile = ::open(path.c_str(), O_WRONLY | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0666);
    if (iFile < 0)
        throw Failure(Exit::file, path + ": " + std::strerror(errno));
    if (::fstat(iFile, &status) != 0 || !S_ISREG(status.st_mode) || status.st_size != 0) {
        ::close(iFile);
        throw Failure(Exit::file, path + " is no empty file: nothing is overwritten");
    }
    int iError = writeAll(iFile, text.data(), text.size());
    if (iError == 0 && ::fsync(iFile) != 0)
        iError = errno;
    // A part of a description would be worse than none.
    if (iError != 0 && ::ftruncate(iFile, 0) == 0 && bNew)
        ::unlink(path.c_str());
    ::close(iFile);
    if (iError != 0)
        throw Failure(Exit::file, path + ": " + std::strerror(iError));
}

void requireLost(const RecordingName& name) {
    const RecordingDescription present = readDescription(name.description());
    if (present.state == DescriptionState::missing || present.state == DescriptionState::empty)
        return;
    throw Failure(Exit::file, name.description() +
                                  (present.isGood() ? " is there and good: there is nothing to recover"
                                                    : " is not empty (" + present.problem +
                                                          "): nothing is overwritten; move it away first"));
}

RecordingDescription readLike(const std::string& like, DataType type) {
    if (like.empty())
        return {};
    const RecordingName name(like);
    RecordingDescription description = readDescription(name.description());
    if (!description.isGood())
        throw Failure(Exit::file, name.description() + ": " + description.problem);
    if (description.type() != type)
        throw Failure(Exit::usage, name.description() + " describes " + description.dataType +
                                       ", the data are " + toText(type));
    return description;
}

std::vector<std::string> report(const RecordingName& name, const Rebuilding& rebuilt) {
    std::vector<Row> rows = tuningRows(rebuilt.description());
    for (const auto& further : {timeRows(rebuilt.description()), contentRows(rebuilt.summary())})
        rows.insert(rows.end(), further.begin(), further.end());
    for (const auto& [label, value] : rebuilt.assumed())
        rows.emplace_back("assumed", label + ": " + value);
    std::vector<std::string> lines = alignRows(rows);
    lines.insert(lines.begin(), "Rebuilt " + name.description() + ": " + rebuilt.description().dataType);
    if (const std::string tail = tailText(rebuilt.summary()); !tail.empty())
        lines.push_back("Left alone: " + tail);
    for (const std::string& difference : differences(rebuilt.description(), rebuilt.summary()))
        lines.push_back("Doubtful: " + difference);
    return lines;
}

Exit recover(const RecoverOptions& options) {
    const RecordingName name(options.name);
    requireLost(name);
    RecordingReader reader(name.data());
    if (reader.isBeingWritten())
        throw Failure(Exit::file,
                      name.data() + " is being written at this moment: its description comes at its end");
    if (!reader.type())
        throw Failure(Exit::file,
                      name.data() + (reader.size() == 0 ? " is empty: there is nothing to play"
                                                        : " does not begin with a frame of a recording"));
    const RecordingDescription like = readLike(options.like, *reader.type());
    const Rebuilding rebuilt(options, like, reader);
    writeDescription(name.description(), rebuilt.description().text());
    for (const std::string& line : report(name, rebuilt))
        printOut(line + "\n");
    if (*reader.type() != DataType::baseband)
        printErr("Play it with:  vnk play " + name.stem());
    return Exit::done;
}

/// What the form of a description can carry.
std::string plainText(const std::string& text) {
    for (const char c : text)
        if (std::strchr("\"\\{}[]", c) || static_cast<unsigned char>(c) < ' ')
            return "a description cannot carry quotes, brackets, backslashes and control characters";
    return {};
}

}  // namespace

void addRecover(CLI::App& app, Chosen& chosen) {
    auto options = std::make_shared<RecoverOptions>();
    CLI::App* pVerb = app.add_subcommand(
        "recover", "rebuild the lost description of a recording, from its data and what you add");
    pVerb->add_option("NAME", options->name, "the recording: its name, or its data file")->required();
    pVerb->add_option("--like", options->like, "take what is not told from this other recording")
        ->type_name("NAME");
    addQuantity(*pVerb, "--rate", options->rateHz, parseFrequency, "2M",
                "sample rate; of IQ the frames' times tell it else");
    addQuantity(*pVerb, "--fcentre", options->centreHz, parseFrequency, "98.1M", "centre frequency");
    addQuantity(*pVerb, "--bandwidth", options->bandwidthHz, parseFrequency, "200k", "bandwidth");
    addQuantity(*pVerb, "--ref", options->referenceDbm, parseLevel, "-30", "reference level, dBm", Sign::any);
    addQuantity(*pVerb, "--rbw", options->rbwHz, parseFrequency, "10k", "resolution bandwidth, of spectra");
    pVerb->add_option("--window", options->window, "window function, of spectra")->check(plainText);
    pVerb->add_option("--units", options->units, "unit of the values")->check(plainText);
    pVerb->add_option("--resolution", options->resolution, "of the frames' times")
        ->check(CLI::IsMember({"s", "ms", "us", "ns", "ps"}));
    pVerb->callback([options, &chosen] { chosen = [options] { return recover(*options); }; });
}

}  // namespace cli
