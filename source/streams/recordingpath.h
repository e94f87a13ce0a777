#pragma once

#include <string>

/// Names of recordings. A recording is a pair, stem.json and stem.data. The folder of a path is the text up to
/// its last backslash on every platform; on POSIX a backslash becomes a slash where the file system is touched,
/// and nowhere else, so that texts reported back keep the caller's form.
namespace RecordingPath {

/// The path up to its last "."; the whole path if it has none.
std::string stemOf(const std::string& path);
/// Whether the folder of the path exists. A path without a backslash counts as a folder as a whole.
bool hasFolder(const std::string& path);
/// As the file system takes it.
std::string nativeForm(const std::string& path);

/// The path, or its first numbered form that no file has yet: "x(1).json". Empty if the folder does not exist.
/// A name that is taken and holds "(" counts on from the number behind it; throws std::invalid_argument or
/// std::out_of_range where that is no number.
std::string makeUnique(const std::string& path);

}  // namespace RecordingPath
