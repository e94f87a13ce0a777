#include <csignal>
#include <exception>

#include "tools/output.h"
#include "tools/session.h"
#include "tools/verbs.h"

namespace cli {

void addAddress(CLI::App& verb, std::string& address) {
    verb.add_option("ADDRESS", address, "host name or IPv4 address of the unit")->required();
}

namespace {

constexpr const char* kFooter = R"(Frequencies take units (98.1M, 2.4GHz, 200k), levels too (-30, -30dBm).
Data goes to standard output or files, everything else to standard error.

Exit codes: 0 done, 1 failure, 2 usage, 3 no unit found, 4 unit cannot be opened,
            5 link lost, 7 trouble with a file

Try it:  vnk info 192.168.1.20
         vnk iq 192.168.1.20 --fcentre 98.1M --ifbw 200k --ref -30 --seconds 5 -o radio.cf32
         vnk sweep 192.168.1.20 -f 88M:108M:10k --png fm.png
         vnk record 192.168.1.20 iq --fcentre 98.1M --ifbw 200k --seconds 5 -o radio
         vnk play radio
         vnk spectrum radio --rbw 500 --png radio.png
         vnk demod fm radio -o radio.wav)";

int run(int argc, char** argv) {
    CLI::App app{"vnk: drives networked RF receivers through libvnk", "vnk"};
    app.footer(kFooter);
    app.require_subcommand(1);
    app.set_version_flag("--version", Session::version());
    Chosen chosen;
    addFind(app, chosen);
    addInfo(app, chosen);
    addScpi(app, chosen);
    addParams(app, chosen);
    addIq(app, chosen);
    addSweep(app, chosen);
    addSpectrum(app, chosen);
    addDemod(app, chosen);
    addRecord(app, chosen);
    addPlay(app, chosen);
    addWav(app, chosen);
    addFile(app, chosen);
    addRecover(app, chosen);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& wish) {
        return app.exit(wish);
    } catch (const CLI::ParseError& error) {
        app.exit(error);
        return static_cast<int>(Exit::usage);
    }
    try {
        return static_cast<int>(chosen());
    } catch (const Failure& failure) {
        printErr(std::string("vnk: ") + failure.what());
        return static_cast<int>(failure.code());
    } catch (const std::exception& failure) {
        printErr(std::string("vnk: ") + failure.what());
        return static_cast<int>(Exit::failure);
    }
}

}  // namespace

}  // namespace cli

int main(int argc, char** argv) {
    // A reader that has gone is an error of the write that finds it, not the end of the program.
    std::signal(SIGPIPE, SIG_IGN);
    return cli::run(argc, argv);
}
