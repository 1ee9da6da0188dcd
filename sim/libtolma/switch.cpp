// The on-board three-port switch (PC port 1, LAN port 2, CPU port 1024). Its
// state is switch/state in the phone, KEY=VALUE lines that ftsim writes at each
// boot (from switch/defaults) and shows and sets; every call reads it under
// switch/lock and writes it back when it changes something, so a `ftsim set`
// made while the console runs counts from the next call on.
//
// `ftsim fault PHONE switch CALL[:ERRNO][@N]` is the file faults/switch.CALL,
// with :E (E an errno number) and @N: that call, or only its Nth call of the run,
// fails with E (EIO without).
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <map>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/tolma.h"
#include "platform/unique_fd.h"
#include "sim/common/phone.h"

namespace {

constexpr char kState[] = "switch/state";
constexpr char kDefaults[] = "switch/defaults";
constexpr size_t kMaxState = 256 * 1024;
constexpr char kSpecialFile[] = "/tmp/specialFTfile.txt";
constexpr int kAllPorts = 1027;

std::atomic<bool> g_opened{false};

using State = std::map<std::string, std::string>;

// The errno a faulted call fails with, or 0.
int injected(const char *call) { return sim::call_fault(std::string("switch.") + call); }

bool load(const char *rel, State &st) {
    return sim::read_key_values(rel, kMaxState, [&](std::string k, std::string v) { st[k] = v; });
}

bool save(const State &st) {
    std::string text;
    for (const auto &kv : st) text += kv.first + "=" + kv.second + "\n";
    return sim::write_atomically(kState, text.data(), text.size());
}

long num(const State &st, const std::string &key) {
    auto it = st.find(key);
    return it == st.end() ? 0 : std::strtol(it->second.c_str(), nullptr, 0);
}

void set(State &st, const std::string &key, long value) { st[key] = std::to_string(value); }

int fail(int e) {
    errno = e;
    return -1;
}

// "portN." for a single port id, or "" when the id is no port.
std::string port_key(int port) {
    if (port == 1 || port == 2 || port == 1024) return "port" + std::to_string(port) + ".";
    return "";
}

// Ports with a PHY: the two external ones.
bool has_phy(int port) { return port == 1 || port == 2; }

// What the PHY negotiates: the configured mode, or with auto the best mode
// both ends offer; 0 for a port that is down, 7 when the partner cannot follow.
void negotiate(State &st, const std::string &p) {
    long status = num(st, p + "link_status");
    long mode = num(st, p + "link_mode");
    long partner = num(st, p + "partner");
    long best = num(st, p + "gigabit") ? 6 : 5;
    long actual;
    if ((status != 1 && status != 3) || mode == 0)
        actual = 0;
    else if (mode == 1)
        actual = partner >= 2 ? (partner < best ? partner : best) : 7;
    else
        actual = partner >= mode ? mode : 7;
    set(st, p + "actual_mode", actual);
}

bool is_fact(const std::string &key) {
    auto ends = [&](const char *s) {
        size_t n = std::strlen(s);
        return key.size() >= n && key.compare(key.size() - n, n, s) == 0;
    };
    return ends(".gigabit") || ends(".partner") || ends(".mac") || key.compare(0, 4, "reg.") == 0 ||
           key.find(".phy") != std::string::npos;
}

// The state under switch/lock: read, handed to `fn`, written back when `writes`.
template <typename Fn>
int with_state(bool writes, Fn fn) {
    UniqueFd lock(::open(sim::phone_path("switch/lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    if (lock) ::flock(lock.get(), LOCK_EX);
    State st;
    if (!load(kState, st)) return fail(ENODEV);
    // A frozen switch takes every setting and keeps what it had.
    if (writes && num(st, "frozen") != 0) writes = false;
    int rc = fn(st);
    if (rc < 0) return rc;
    if (writes && !save(st)) return fail(EIO);
    return rc;
}

// One library call: the fault, the library's descriptor, the state in and out.
template <typename Fn>
int call(const char *name, bool writes, Fn fn) {
    if (int e = injected(name)) return fail(e);
    if (!g_opened.load()) return fail(EBADF);
    return with_state(writes, fn);
}

__attribute__((format(printf, 2, 3))) void appendf(std::string &out, const char *fmt, ...) {
    char line[256];
    va_list ap;
    va_start(ap, fmt);
    int n = std::vsnprintf(line, sizeof line, fmt, ap);
    va_end(ap);
    if (n > 0) out.append(line, static_cast<size_t>(n) < sizeof line ? static_cast<size_t>(n) : sizeof line - 1);
}

// The dumps go to the console's standard output in one piece. The driver
// dumps only while the console's special file marks the run.
int dump(const std::string &text) {
    struct stat sb;
    if (::stat(kSpecialFile, &sb) != 0) return fail(EACCES);
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
    return 0;
}

template <typename T>
int get_port(const char *name, int port, const char *key, T *out, bool phy_only = false) {
    return call(name, false, [&](State &st) {
        std::string p = port_key(port);
        if (p.empty() || !out || (phy_only && !has_phy(port))) return fail(EINVAL);
        *out = static_cast<T>(num(st, p + key));
        return 0;
    });
}

int set_port(const char *name, int port, const char *key, int value, int lo, int hi,
             bool phy_only = false) {
    return call(name, true, [&](State &st) {
        std::string p = port_key(port);
        if (p.empty() || value < lo || value > hi || (phy_only && !has_phy(port))) return fail(EINVAL);
        set(st, p + key, value);
        return 0;
    });
}

int set_switch(const char *name, const char *key, int value) {
    return call(name, true, [&](State &st) {
        if (value != 0 && value != 1) return fail(EINVAL);
        set(st, key, value);
        return 0;
    });
}

int get_switch(const char *name, const char *key, int *out) {
    return call(name, false, [&](State &st) {
        if (!out) return fail(EINVAL);
        *out = static_cast<int>(num(st, key));
        return 0;
    });
}

const char *const kPorts[] = {"port1.", "port2.", "port1024."};

}  // namespace

extern "C" {

int Net_fd_init(void) {
    if (int e = injected("Net_fd_init")) return fail(e);
    g_opened = true;
    return 0;
}

int L2Switch_EarlyInit(int mdix) {
    return call("L2Switch_EarlyInit", true, [&](State &st) {
        if (mdix != 0 && mdix != 1) return fail(EINVAL);
        for (const char *p : {"port1.", "port2."}) {
            set(st, std::string(p) + "mdix", mdix);
            negotiate(st, p);
        }
        return 0;
    });
}

int L2Switch_IsSwitchPortSupport1G(int port, int *supported) {
    return get_port("L2Switch_IsSwitchPortSupport1G", port, "gigabit", supported);
}

int L2Switch_SetLinkStatus(int port, int status) {
    return call("L2Switch_SetLinkStatus", true, [&](State &st) {
        std::string p = port_key(port);
        if (p.empty() || status < 1 || status > 4) return fail(EINVAL);
        set(st, p + "link_status", status);
        negotiate(st, p);
        return 0;
    });
}

int L2Switch_GetLinkStatus(int port, int *status) {
    return get_port("L2Switch_GetLinkStatus", port, "link_status", status);
}

int L2Switch_SetLinkMode(int port, int mode) {
    return call("L2Switch_SetLinkMode", true, [&](State &st) {
        std::string p = port_key(port);
        if (p.empty() || mode < 0 || mode > 6 || (mode == 6 && !num(st, p + "gigabit")))
            return fail(EINVAL);
        set(st, p + "link_mode", mode);
        negotiate(st, p);
        return 0;
    });
}

int L2Switch_GetLinkMode(int port, int *configured, int *actual) {
    return call("L2Switch_GetLinkMode", false, [&](State &st) {
        std::string p = port_key(port);
        if (p.empty()) return fail(EINVAL);
        if (configured) *configured = static_cast<int>(num(st, p + "link_mode"));
        if (actual) *actual = static_cast<int>(num(st, p + "actual_mode"));
        return 0;
    });
}

int L2Switch_SetTestMode(int port, int testMode) {
    return call("L2Switch_SetTestMode", true, [&](State &st) {
        std::string p = port_key(port);
        if (p.empty() || !has_phy(port) || !num(st, p + "gigabit") || testMode < 0 || testMode > 4)
            return fail(EINVAL);
        set(st, p + "test_mode", testMode);
        return 0;
    });
}

int L2Switch_GetTestMode(int port, int *testMode) {
    return get_port("L2Switch_GetTestMode", port, "test_mode", testMode);
}

int L2SW_EthernetLedTest(int action) {
    static const char *const kActions[] = {nullptr, "off", "on", "enable"};
    if (int e = injected("L2SW_EthernetLedTest")) return fail(e);
    if (action < 1 || action > 3) return fail(EINVAL);
    // The LED test needs no Net_fd_init.
    return with_state(true, [&](State &st) {
        st["ethled"] = kActions[action];
        return 0;
    });
}

int L2Switch_portCntrs(int port) {
    return call("L2Switch_portCntrs", false, [&](State &st) {
        std::string p = port_key(port);
        if (p.empty()) return fail(EINVAL);
        std::string out;
        appendf(out, "\nPort %d MIB counters\n", port);
        std::string prefix = p + "cnt.";
        for (const auto &kv : st)
            if (kv.first.compare(0, prefix.size(), prefix) == 0)
                appendf(out, "  %-32s: %s\n", kv.first.c_str() + prefix.size(), kv.second.c_str());
        return dump(out);
    });
}

int L2Switch_portResetCntrs(int port) {
    return call("L2Switch_portResetCntrs", true, [&](State &st) {
        std::string p = port_key(port);
        if (p.empty() && port != kAllPorts) return fail(EINVAL);
        for (auto &kv : st) {
            bool counter = kv.first.find(".cnt.") != std::string::npos;
            if (counter && (port == kAllPorts || kv.first.compare(0, p.size(), p) == 0)) kv.second = "0";
        }
        return 0;
    });
}

int L2Switch_ResetSettings(void) {
    return call("L2Switch_ResetSettings", true, [&](State &st) {
        State fresh;
        if (!load(kDefaults, fresh)) return fail(ENODEV);
        for (const auto &kv : st)
            if (is_fact(kv.first)) fresh[kv.first] = kv.second;
        for (const char *p : kPorts) negotiate(fresh, p);
        st.swap(fresh);
        return 0;
    });
}

int L2Switch_GetMacAddr(int port, unsigned char mac[6]) {
    return call("L2Switch_GetMacAddr", false, [&](State &st) {
        std::string p = port_key(port);
        if (p.empty() || !mac) return fail(EINVAL);
        unsigned b[6];
        if (std::sscanf(st[p + "mac"].c_str(), "%2x:%2x:%2x:%2x:%2x:%2x", &b[0], &b[1], &b[2], &b[3],
                        &b[4], &b[5]) != 6)
            return fail(EIO);
        for (int i = 0; i < 6; ++i) mac[i] = static_cast<unsigned char>(b[i]);
        return 0;
    });
}

int L2Switch_print_mac_table(void) {
    return call("L2Switch_print_mac_table", false, [&](State &st) {
        timespec now;
        ::clock_gettime(CLOCK_MONOTONIC, &now);
        char stamp[32];
        std::snprintf(stamp, sizeof stamp, "[%5ld.%06ld] ", static_cast<long>(now.tv_sec % 100000),
                      now.tv_nsec / 1000);
        sim::append_line("log/dmesg", std::string(stamp) + "rtl8367: L2 address table");
        sim::append_line("log/dmesg", std::string(stamp) + "rtl8367:  idx  mac                port  fid  type");
        for (const auto &kv : st) {
            if (kv.first.compare(0, 4, "fdb.") != 0) continue;
            char mac[32] = "", type[16] = "";
            unsigned port = 0, fid = 0;
            if (std::sscanf(kv.second.c_str(), "%31s %u %u %15s", mac, &port, &fid, type) != 4) continue;
            char line[128];
            std::snprintf(line, sizeof line, "rtl8367:  %3s  %s  %4u  %3u  %s", kv.first.c_str() + 4, mac,
                          port, fid, type);
            sim::append_line("log/dmesg", std::string(stamp) + line);
        }
        return 0;
    });
}

int L2Switch_GetRegValue(unsigned int reg, unsigned int *value) {
    return call("L2Switch_GetRegValue", false, [&](State &st) {
        if (reg > 0xffff || !value) return fail(EINVAL);
        char key[16];
        std::snprintf(key, sizeof key, "reg.%04x", reg);
        *value = static_cast<unsigned>(std::strtoul(st[key].c_str(), nullptr, 0));
        return 0;
    });
}

int L2Switch_GetPhyRegValue(int port, int reg, unsigned int *value) {
    return call("L2Switch_GetPhyRegValue", false, [&](State &st) {
        std::string p = port_key(port);
        if (!has_phy(port) || reg < 0 || reg > 15 || !value) return fail(EINVAL);
        *value = static_cast<unsigned>(std::strtoul(st[p + "phy" + std::to_string(reg)].c_str(), nullptr, 0));
        return 0;
    });
}

int L2Switch_SetAutoMDIXPort(int port, int mode) {
    return set_port("L2Switch_SetAutoMDIXPort", port, "mdix", mode, 0, 1, true);
}

int L2Switch_GetAutoMDIXPort(int port, int *mode) {
    return get_port("L2Switch_GetAutoMDIXPort", port, "mdix", mode, true);
}

int L2Switch_GetPVID(unsigned short *pvid, int port) {
    return get_port("L2Switch_GetPVID", port, "pvid", pvid);
}

int L2Switch_GetPortPriority(int port, unsigned short *priority) {
    return get_port("L2Switch_GetPortPriority", port, "priority", priority);
}

int L2Switch_VlanMbrCfg(int index) {
    return call("L2Switch_VlanMbrCfg", false, [&](State &st) {
        if ((index < 0 || index > 4095) && index != 9999) return fail(EINVAL);
        std::string out = "\nVLAN member configuration\n  VID  Members          Untagged         FID\n";
        int shown = 0;
        for (const auto &kv : st) {
            int vid;
            char field[16];
            if (std::sscanf(kv.first.c_str(), "vlan.%d.%15s", &vid, field) != 2) continue;
            if (std::strcmp(field, "members") != 0 || (index != 9999 && vid != index)) continue;
            std::string v = "vlan." + std::to_string(vid) + ".";
            appendf(out, "  %4d %-16s %-16s %3ld\n", vid, kv.second.c_str(), st[v + "untagged"].c_str(),
                    num(st, v + "fid"));
            ++shown;
        }
        if (!shown) appendf(out, "  VID %d has no member configuration\n", index);
        return dump(out);
    });
}

int L2Switch_ShowAllRules(void) {
    return call("L2Switch_ShowAllRules", false, [&](State &st) {
        std::string out = "\nACL rules\n  Rule  Ports     Match                          Action\n";
        int shown = 0;
        for (const auto &kv : st) {
            if (kv.first.compare(0, 4, "acl.") != 0) continue;
            std::string rule = kv.second;
            size_t a = rule.find('|'), b = rule.find('|', a == std::string::npos ? a : a + 1);
            if (a == std::string::npos || b == std::string::npos) continue;
            appendf(out, "  %4s  %-8s  %-30s %s\n", kv.first.c_str() + 4, rule.substr(0, a).c_str(),
                    rule.substr(a + 1, b - a - 1).c_str(), rule.substr(b + 1).c_str());
            ++shown;
        }
        appendf(out, "  %d rule(s) in use\n", shown);
        return dump(out);
    });
}

int L2Switch_DelAllRules(void) {
    return call("L2Switch_DelAllRules", true, [&](State &st) {
        for (auto it = st.begin(); it != st.end();)
            it = it->first.compare(0, 4, "acl.") == 0 ? st.erase(it) : std::next(it);
        return 0;
    });
}

int L2Switch_GetGreenEthernetPort(int *mode) { return get_switch("L2Switch_GetGreenEthernetPort", "green", mode); }
int L2Switch_SetGreenEthernetPort(int mode) { return set_switch("L2Switch_SetGreenEthernetPort", "green", mode); }

int L2Switch_GetEEEPort(int port, int *mode) {
    return get_port("L2Switch_GetEEEPort", port, "eee", mode, true);
}

int L2Switch_SetEEEPort(int port, int mode) {
    return set_port("L2Switch_SetEEEPort", port, "eee", mode, 0, 1, true);
}

int L2Switch_rgmiiDelayExt_set(int port, int txDelay, int rxDelay) {
    return call("L2Switch_rgmiiDelayExt_set", true, [&](State &st) {
        if (port != 1024 || txDelay < 0 || txDelay > 1 || rxDelay < 0 || rxDelay > 7) return fail(EINVAL);
        set(st, "rgmii_tx", txDelay);
        set(st, "rgmii_rx", rxDelay);
        return 0;
    });
}

int L2Switch_GetSSC(int *status) { return get_switch("L2Switch_GetSSC", "ssc", status); }
int L2Switch_SetSSC(int status) { return set_switch("L2Switch_SetSSC", "ssc", status); }

}  // extern "C"
