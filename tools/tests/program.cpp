#include "program.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

extern char** environ;

namespace vnktest {

namespace {

struct Pipe {
    int read = -1, write = -1;
    Pipe() {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0)
            throw std::runtime_error("pipe2");
        read = ends[0];
        write = ends[1];
    }
};

/// Takes what is there; false at the end.
bool drain(int descriptor, std::string& text) {
    std::array<char, 65536> buffer;
    const ssize_t iGot = ::read(descriptor, buffer.data(), buffer.size());
    if (iGot > 0)
        text.append(buffer.data(), static_cast<size_t>(iGot));
    return iGot > 0;
}

}  // namespace

Program::Program(const std::string& path, const std::vector<std::string>& arguments) {
    const Pipe out, err;
    std::vector<char*> argv{const_cast<char*>(path.c_str())};
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out.write, 1);
    posix_spawn_file_actions_adddup2(&actions, err.write, 2);
    const int iError = ::posix_spawn(&miProcess, path.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(out.write);
    ::close(err.write);
    miOut = out.read;
    miErr = err.read;
    if (iError != 0)
        throw std::runtime_error("cannot start " + path);
}

Program::~Program() {
    if (miProcess > 0) {
        ::kill(miProcess, SIGKILL);
        ::waitpid(miProcess, nullptr, 0);
    }
    closeOut();
    if (miErr >= 0)
        ::close(miErr);
}

bool Program::collect(const std::function<bool()>& enough, std::chrono::seconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!enough()) {
        if (std::chrono::steady_clock::now() > end || (miOut < 0 && miErr < 0))
            return false;
        std::array<pollfd, 2> waits{{{miOut, POLLIN, 0}, {miErr, POLLIN, 0}}};
        if (::poll(waits.data(), waits.size(), 100) <= 0)
            continue;
        if (waits[0].revents != 0 && !drain(miOut, mcOut))
            closeOut();
        if (waits[1].revents != 0 && !drain(miErr, mcErr)) {
            ::close(miErr);
            miErr = -1;
        }
    }
    return true;
}

bool Program::waitForErr(const std::string& text) {
    return collect([&] { return mcErr.find(text) != std::string::npos; }, std::chrono::seconds(30));
}

bool Program::waitForOut(size_t bytes) {
    return collect([&] { return mcOut.size() >= bytes; }, std::chrono::seconds(30));
}

void Program::signal(int number) {
    ::kill(miProcess, number);
}

void Program::closeOut() {
    if (miOut >= 0)
        ::close(miOut);
    miOut = -1;
}

int Program::finish() {
    collect([] { return false; }, std::chrono::seconds(120));
    if (miOut >= 0 || miErr >= 0)
        return -1000;
    int iStatus = 0;
    ::waitpid(miProcess, &iStatus, 0);
    miProcess = -1;
    return WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : -WTERMSIG(iStatus);
}

Ran runVnk(const std::vector<std::string>& arguments) {
    Program program(VNK_PROGRAM, arguments);
    Ran ran;
    ran.code = program.finish();
    ran.out = program.out();
    ran.err = program.err();
    return ran;
}

}  // namespace vnktest
