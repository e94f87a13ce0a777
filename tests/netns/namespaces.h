#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace vnktest {

/// A thread in a network namespace, with mounts, of its own. The system removes both with the thread, so
/// nothing is left behind however a test ends.
class Namespace {
 public:
    Namespace() : mcThread([this] { run(); }) {
        std::unique_lock<std::mutex> cGuard(mcMutex);
        mcChanged.wait(cGuard, [this] { return mbReady; });
    }
    ~Namespace() {
        {
            std::lock_guard<std::mutex> cGuard(mcMutex);
            mbEnd = true;
            mcChanged.notify_all();
        }
        mcThread.join();
    }
    Namespace(const Namespace&) = delete;
    Namespace& operator=(const Namespace&) = delete;

    /// False where the system does not permit namespaces, or has no `ip` to set them up with.
    bool isPermitted() const { return mbPermitted && std::system("ip -V >/dev/null 2>&1") == 0; }

    /// Runs the work on the namespace's thread and waits for it.
    void run(const std::function<void()>& work) {
        start(work);
        wait();
    }
    void start(const std::function<void()>& work) {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        mcWork = work;
        mcChanged.notify_all();
    }
    void wait() {
        std::unique_lock<std::mutex> cGuard(mcMutex);
        mcChanged.wait(cGuard, [this] { return !mcWork; });
    }
    /// A command of the shell, inside.
    bool shell(const std::string& command) {
        bool bGood = false;
        run([&] { bGood = std::system(command.c_str()) == 0; });
        return bGood;
    }
    /// Puts a text in place of a file of the system, for this namespace only. Only a thread that came from
    /// this one keeps seeing it.
    bool replaceFile(const std::string& path, const std::string& text) {
        std::string name = (std::filesystem::temp_directory_path() / "vnk-netns-XXXXXX").string();
        const int iFile = ::mkstemp(name.data());
        if (iFile < 0)
            return false;
        ::close(iFile);
        std::ofstream(name) << text;
        bool bGood = false;
        run([&] { bGood = ::mount(name.c_str(), path.c_str(), nullptr, MS_BIND, nullptr) == 0; });
        ::unlink(name.c_str());
        return bGood;
    }
    /// The thread's number, by which `ip link set ... netns` finds the namespace.
    std::string number() const { return std::to_string(miThread); }

 private:
    void run() {
        miThread = static_cast<long>(::syscall(SYS_gettid));
        const bool bPermitted = ::unshare(CLONE_NEWNET | CLONE_NEWNS) == 0 &&
                                ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
        std::unique_lock<std::mutex> cGuard(mcMutex);
        mbPermitted = bPermitted;
        mbReady = true;
        mcChanged.notify_all();
        for (;;) {
            mcChanged.wait(cGuard, [this] { return mcWork || mbEnd; });
            if (!mcWork)
                return;
            const auto work = mcWork;
            cGuard.unlock();
            work();
            cGuard.lock();
            mcWork = nullptr;
            mcChanged.notify_all();
        }
    }

    std::mutex mcMutex;
    std::condition_variable mcChanged;
    std::function<void()> mcWork;
    bool mbReady = false;
    bool mbPermitted = false;
    bool mbEnd = false;
    long miThread = 0;
    std::thread mcThread;
};

/// Two namespaces joined by a cable: the host with 10.77.0.1/24 and the unit with 10.77.0.2/24.
struct HostAndUnit {
    Namespace mcHost;
    Namespace mcUnit;

    bool isPermitted() const { return mcHost.isPermitted() && mcUnit.isPermitted(); }
    bool connect() {
        return mcHost.shell("ip link set lo up && ip link add veth0 type veth peer name veth1") &&
               mcHost.shell("ip link set veth1 netns " + mcUnit.number()) &&
               mcHost.shell("ip addr add 10.77.0.1/24 dev veth0 && ip link set veth0 up") &&
               mcUnit.shell(
                   "ip link set lo up && ip addr add 10.77.0.2/24 dev veth1 && ip link set veth1 up") &&
               carries(mcHost, mcUnit) && carries(mcUnit, mcHost);
    }

 private:
    /// The system takes a moment to find the cable plugged in; what is sent before is lost. So broadcasts are
    /// sent until one arrives.
    static bool carries(Namespace& cFrom, Namespace& cTo) {
        int iReceiver = -1;
        sockaddr_in cAddress{};
        cAddress.sin_family = AF_INET;
        cAddress.sin_port = htons(9);
        cTo.run([&] {
            iReceiver = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
            ::bind(iReceiver, reinterpret_cast<sockaddr*>(&cAddress), sizeof(cAddress));
        });
        ::inet_pton(AF_INET, "10.77.0.255", &cAddress.sin_addr);
        bool bArrived = false;
        cFrom.run([&] {
            const int iSender = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
            const int iOn = 1;
            ::setsockopt(iSender, SOL_SOCKET, SO_BROADCAST, &iOn, sizeof(iOn));
            struct pollfd cPoll = {iReceiver, POLLIN, 0};
            for (int i = 0; i < 500 && !bArrived; ++i) {
                ::sendto(iSender, "?", 1, MSG_NOSIGNAL, reinterpret_cast<sockaddr*>(&cAddress),
                         sizeof(cAddress));
                bArrived = ::poll(&cPoll, 1, 20) > 0;
            }
            ::close(iSender);
        });
        ::close(iReceiver);
        return bArrived;
    }
};

}  // namespace vnktest

#define VNK_NEED_NAMESPACES(condition) \
    if (!(condition))                  \
    GTEST_SKIP() << "network namespaces are not permitted here (they need root and iproute2)"
