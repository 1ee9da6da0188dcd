#include "net/ip_ping.h"

#include <unistd.h>

#include <cstdio>

#include "net/dotted_quad.h"
#include "platform/numbers.h"
#include "platform/shell.h"
#include "platform/shell_quote.h"

namespace {

// On the line the station leaves this file so that the console owns eth0;
// without it the phone's network service does, and is asked by intent.
constexpr char kFactoryMarker[] = "/tmp/factorytest.txt";

// A dotted quad is 15 characters at most: the broadcast, the longest line, is 84.
using NetLine = ShellLine<100>;

int run_verdict(const NetLine &line) {
    if (!line.fits() || shell_run(line.c_str()) < 0) {
        std::puts("FAIL");
        return -1;
    }
    std::puts("PASS");
    return 0;
}

int fail() {
    std::puts("FAIL");
    return -1;
}

}  // namespace

int ipTest(const char *action, const char *address) {
    switch (parse_int(action)) {
    case 0:
        // "0" itself, not a word without digits that merely reads as 0.
        if (action[0] != '0') return fail();
        return run_verdict(NetLine("ifconfig eth0"));
    case 1: {
        if (!is_dotted_quad(address)) return fail();
        if (access(kFactoryMarker, F_OK) == 0)
            return run_verdict(NetLine("ifconfig eth0 ").raw(address));
        NetLine line("am broadcast -a com.tolma.endpoint.intent.action.ftcommand -e \"ip\" '");
        return run_verdict(line.raw(address).raw("'"));
    }
    default:
        return fail();
    }
}

int pingTest(const char *address) {
    if (!is_dotted_quad(address)) {
        std::puts("Invalid IP address");
        return -1;
    }
    NetLine line("ping -q -c 4 ");
    if (line.raw(address).fits()) shell_run(line.c_str());
    return 0;
}
