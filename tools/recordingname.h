#pragma once

#include <string>
#include <vector>

namespace cli {

/// The names of a recording: a pair of files with one stem. All paths are those of the file system, apart
/// from the one that the library takes.
class RecordingName {
 public:
    /// From NAME, NAME.json or NAME.data; the folder is what stands before the last "/". Throws Failure with
    /// Exit::usage for what cannot name a recording.
    explicit RecordingName(const std::string& text);

    const std::string& stem() const { return mcStem; }
    std::string description() const { return mcStem + ".json"; }
    std::string data() const { return mcStem + ".data"; }
    /// With a backslash behind the folder, as the library wants it, and an extension, since the library cuts
    /// the name at its last dot.
    std::string libraryPath() const;
    /// NAME-1, NAME-2...
    RecordingName numbered(unsigned number) const;

 private:
    std::string mcStem;
};

/// A name that no file has yet, held by an empty data file so that nobody else takes it. That file goes with
/// this object unless it is kept.
class FreeName {
 public:
    /// The wanted name, or else the first free one of its numbered forms. Throws Failure with Exit::file when
    /// nothing can be made there.
    explicit FreeName(const RecordingName& wanted);
    ~FreeName();
    FreeName(const FreeName&) = delete;
    FreeName& operator=(const FreeName&) = delete;

    const RecordingName& name() const { return mcName; }
    /// Files that are in the way of the wanted name; empty when that one was free.
    const std::vector<std::string>& taken() const { return mlTaken; }
    void keep() { mbKept = true; }

 private:
    bool claim();

    RecordingName mcName;
    std::vector<std::string> mlTaken;
    bool mbKept = false;
};

}  // namespace cli
