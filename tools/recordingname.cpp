#include "tools/recordingname.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tools/exitcodes.h"

namespace cli {

namespace {

constexpr unsigned kMostNumbers = 100000;

std::string withoutExtension(const std::string& text) {
    for (const char* pExtension : {".json", ".data"})
        if (text.size() >= 5 && text.compare(text.size() - 5, 5, pExtension) == 0)
            return text.substr(0, text.size() - 5);
    return text;
}

/// Whatever it is, also a link that leads nowhere.
bool exists(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0;
}

}  // namespace

RecordingName::RecordingName(const std::string& text) : mcStem(withoutExtension(text)) {
    if (text.find('\\') != std::string::npos)
        throw Failure(Exit::usage, "'" + text + "': the path of a recording cannot hold a backslash");
    const auto uSlash = mcStem.rfind('/');
    const std::string name = uSlash == std::string::npos ? mcStem : mcStem.substr(uSlash + 1);
    if (name.empty() || name == "." || name == ".." || text == "-")
        throw Failure(Exit::usage, "'" + text +
                                       "' names no recording: give a file name without extension, with "
                                       "or without its folder");
}

std::string RecordingName::libraryPath() const {
    const auto uSlash = mcStem.rfind('/');
    if (uSlash == std::string::npos)
        return ".\\" + mcStem + ".json";
    // An empty folder would be none: "/." is the root as well.
    const std::string folder = uSlash == 0 ? "/." : mcStem.substr(0, uSlash);
    return folder + "\\" + mcStem.substr(uSlash + 1) + ".json";
}

RecordingName RecordingName::numbered(unsigned number) const {
    RecordingName name = *this;
    // In two steps: the compiler sees an overlap in a sum that begins with a literal.
    name.mcStem += '-';
    name.mcStem += std::to_string(number);
    return name;
}

FreeName::FreeName(const RecordingName& wanted) : mcName(wanted) {
    for (const std::string& path : {wanted.description(), wanted.data()})
        if (exists(path))
            mlTaken.push_back(path);
    for (unsigned u = 1; !claim(); ++u) {
        if (u > kMostNumbers)
            throw Failure(Exit::file, wanted.stem() + ": no free name up to " + mcName.stem());
        mcName = wanted.numbered(u);
    }
}

/// False when the name is taken.
bool FreeName::claim() {
    if (exists(mcName.description()))
        return false;
    const int iFile = ::open(mcName.data().c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (iFile < 0 && errno == EEXIST)
        return false;
    if (iFile < 0)
        throw Failure(Exit::file, mcName.data() + ": " + std::strerror(errno));
    ::close(iFile);
    return true;
}

FreeName::~FreeName() {
    if (!mbKept)
        ::unlink(mcName.data().c_str());
}

}  // namespace cli
