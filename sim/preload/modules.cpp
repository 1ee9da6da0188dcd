// Kernel modules. The host kernel loads none, so the phone keeps its own list:
// init_module and delete_module work on it, and the console's reads of
// /proc/modules see it. A module image is known by its file under
// /system/lib/modules; loading the Wi-Fi driver (sd8xxx, after mlan) makes
// wlan0 in the phone's network namespace (a tap, with the MAC of the store's
// WIFIADD), loading mbt8xxx makes /dev/mbtchar0.
//
// Phone files: run/modules (the list, in the kernel's layout; emptied as a run
// starts), log/modules (every call with its parameters and result).
// Faults: module-busy.NAME (EAGAIN on every removal), module-stuck.NAME (the
// removal succeeds but the module stays listed, unloading), module-missing.NAME
// (its .ko is absent), mbtchar0-missing (loading mbt8xxx makes no
// /dev/mbtchar0), modules-unreadable (opening /proc/modules fails, EACCES).
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <linux/if.h>
#include <linux/if_arp.h>
#include <linux/if_tun.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "sim/common/phone.h"
#include "sim/preload/nodes.h"

namespace {

constexpr char kList[] = "run/modules";
constexpr char kLog[] = "log/modules";
constexpr char kImages[] = "system/lib/modules";
constexpr char kWlanFolder[] = "sys/class/net/wlan0";
constexpr unsigned char kFallbackMac[6] = {0x02, 0x00, 0x00, 0x00, 0x00, 0x01};

struct Module {
    std::string name;
    unsigned long size;
    bool unloading;
};

std::string base_name(const char *path) {
    std::string name = path;
    size_t slash = name.rfind('/');
    if (slash != std::string::npos) name.erase(0, slash + 1);
    if (name.size() > 3 && name.compare(name.size() - 3, 3, ".ko") == 0) name.resize(name.size() - 3);
    return name;
}

int missing_image(const char *path) {
    if (sim::fault("module-missing." + base_name(path))) {
        errno = ENOENT;
        return -1;
    }
    return 0;
}

int unreadable_list(const char *) {
    if (sim::fault("modules-unreadable")) {
        errno = EACCES;
        return -1;
    }
    return 0;
}

const preload::DeviceNode kNodes[] = {
    {"/proc/modules", kList, 0, nullptr, nullptr, unreadable_list},
    {"/dev/mbtchar0", "dev/mbtchar0", 0, nullptr},
    {"/system/lib/modules/", "system/lib/modules/", 0, nullptr, nullptr, missing_image},
};

__attribute__((constructor)) void register_nodes() { preload::add_nodes(kNodes); }

std::vector<Module> read_list() {
    std::vector<Module> list;
    std::string text;
    sim::read_file(kList, text, 1 << 16);
    size_t pos = 0;
    while (pos < text.size()) {
        size_t end = text.find('\n', pos);
        if (end == std::string::npos) end = text.size();
        char name[64], state[16];
        unsigned long size;
        if (std::sscanf(text.substr(pos, end - pos).c_str(), "%63s %lu %*s %*s %15s", name, &size,
                        state) == 3)
            list.push_back({name, size, std::strcmp(state, "Unloading") == 0});
        pos = end + 1;
    }
    return list;
}

bool holds(const Module &user, const std::string &name) {
    return !user.unloading && user.name == "sd8xxx" && name == "mlan";
}

// The kernel's layout: name, size, users, the modules using it, state, address.
void write_list(const std::vector<Module> &list) {
    std::string text;
    unsigned long address = 0xbf000000;
    for (const Module &m : list) {
        std::string users;
        int count = 0;
        for (const Module &u : list)
            if (holds(u, m.name)) users += u.name + ",", ++count;
        char line[256];
        std::snprintf(line, sizeof line, "%s %lu %d %s %s 0x%08lx\n", m.name.c_str(), m.size, count,
                      users.empty() ? "-" : users.c_str(), m.unloading ? "Unloading" : "Live",
                      address);
        text += line;
        address += (m.size + 0xfff) & ~0xfffUL;
    }
    sim::write_atomically(kList, text.data(), text.size());
}

const char *errno_name(int err) {
    switch (err) {
    case 0: return "0";
    case EAGAIN: return "EAGAIN";
    case ENOENT: return "ENOENT";
    case EEXIST: return "EEXIST";
    case ENOEXEC: return "ENOEXEC";
    case EFAULT: return "EFAULT";
    default: return "EINVAL";
    }
}

int finish(const std::string &call, int err) {
    sim::append_line(kLog, call + " -> " + errno_name(err));
    if (err == 0) return 0;
    errno = err;
    return -1;
}

// The module whose file under /system/lib/modules holds exactly `image`.
std::string identify(const void *image, unsigned long size) {
    std::string folder = sim::phone_path(kImages);
    DIR *dir = ::opendir(folder.c_str());
    if (!dir) return "";
    std::string found;
    // 64-bit entries: this library is built without large-file names, and a
    // 32-bit readdir gives up on the host's 64-bit inode numbers.
    while (dirent64 *e = ::readdir64(dir)) {
        std::string file = e->d_name;
        if (file.size() < 4 || file.compare(file.size() - 3, 3, ".ko") != 0) continue;
        std::string text;
        if (!sim::read_file(std::string(kImages) + "/" + file, text, size + 1)) continue;
        if (text.size() == size && std::memcmp(text.data(), image, size) == 0) {
            found = base_name(file.c_str());
            break;
        }
    }
    ::closedir(dir);
    return found;
}

void wlan_mac(unsigned char mac[6]) {
    std::string stored;
    unsigned b[6];
    char tail;
    if (sim::read_file("store/WIFIADD", stored, 64) &&
        std::sscanf(stored.c_str(), "%2x:%2x:%2x:%2x:%2x:%2x%c", &b[0], &b[1], &b[2], &b[3], &b[4],
                    &b[5], &tail) == 6) {
        for (int i = 0; i < 6; ++i) mac[i] = static_cast<unsigned char>(b[i]);
    } else {
        std::memcpy(mac, kFallbackMac, 6);
    }
}

// wlan0 as a tap of the run's network namespace, persistent until removed.
void tap_wlan0(bool make) {
    int tun = ::open("/dev/net/tun", O_RDWR | O_CLOEXEC);
    if (tun < 0) {
        sim::append_line(kLog, "wlan0: no /dev/net/tun");
        return;
    }
    struct ifreq ifr {};
    std::snprintf(ifr.ifr_name, IFNAMSIZ, "wlan0");
    ifr.ifr_flags = IFF_TAP | IFF_NO_PI;
    if (::ioctl(tun, TUNSETIFF, &ifr) != 0 || ::ioctl(tun, TUNSETPERSIST, make ? 1 : 0) != 0) {
        sim::append_line(kLog, std::string("wlan0: ") + std::strerror(errno));
        ::close(tun);
        return;
    }
    ::close(tun);
    std::string folder = sim::phone_path(kWlanFolder);
    if (!make) {
        ::unlink((folder + "/address").c_str());
        ::rmdir(folder.c_str());
        return;
    }
    unsigned char mac[6];
    wlan_mac(mac);
    int sock = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (sock >= 0) {
        ifr.ifr_hwaddr.sa_family = ARPHRD_ETHER;
        std::memcpy(ifr.ifr_hwaddr.sa_data, mac, 6);
        ::ioctl(sock, SIOCSIFHWADDR, &ifr);
        ::close(sock);
    }
    for (const char *d : {"sys/class", "sys/class/net", kWlanFolder})
        ::mkdir(sim::phone_path(d).c_str(), 0755);
    char text[24];
    int n = std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x\n", mac[0], mac[1],
                          mac[2], mac[3], mac[4], mac[5]);
    sim::write_atomically(std::string(kWlanFolder) + "/address", text, static_cast<size_t>(n));
}

void char_device(bool make) {
    std::string node = sim::phone_path("dev/mbtchar0");
    if (make && !sim::fault("mbtchar0-missing"))
        ::close(::open(node.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    else
        ::unlink(node.c_str());
}

}  // namespace

extern "C" {

int init_module(const void *image, unsigned long size, const char *params) {
    std::string call = "init_module ";
    if (!image || !params) return finish(call + "? ?", EFAULT);
    std::string name = identify(image, size);
    call += (name.empty() ? "?" : name) + " \"" + params + "\"";
    if (name.empty()) return finish(call, ENOEXEC);
    std::vector<Module> list = read_list();
    bool has_mlan = false;
    for (const Module &m : list) {
        if (m.name == name) return finish(call, EEXIST);
        has_mlan = has_mlan || (m.name == "mlan" && !m.unloading);
    }
    // sd8xxx links against mlan's symbols.
    if (name == "sd8xxx" && !has_mlan) return finish(call, ENOENT);
    list.push_back({name, size, false});
    write_list(list);
    if (name == "sd8xxx") tap_wlan0(true);
    if (name == "mbt8xxx") char_device(true);
    return finish(call, 0);
}

int delete_module(const char *name, unsigned int flags) {
    if (!name) return finish("delete_module ?", EFAULT);
    char flag_text[48];
    std::snprintf(flag_text, sizeof flag_text, "%s%s%s",
                  (flags & O_NONBLOCK) ? "O_NONBLOCK" : "",
                  (flags & O_NONBLOCK) && (flags & O_EXCL) ? "|" : "",
                  (flags & O_EXCL) ? "O_EXCL" : "");
    std::string call = std::string("delete_module ") + name + " " + (flags ? flag_text : "0");
    std::vector<Module> list = read_list();
    size_t i = 0;
    while (i < list.size() && list[i].name != name) ++i;
    if (i == list.size() || list[i].unloading) return finish(call, ENOENT);
    if (sim::fault(std::string("module-busy.") + name)) return finish(call, EAGAIN);
    for (const Module &u : list)
        if (holds(u, name)) return finish(call, EAGAIN);
    if (sim::fault(std::string("module-stuck.") + name)) {
        list[i].unloading = true;
        write_list(list);
        return finish(call, 0);
    }
    list.erase(list.begin() + static_cast<long>(i));
    write_list(list);
    if (std::strcmp(name, "sd8xxx") == 0) tap_wlan0(false);
    if (std::strcmp(name, "mbt8xxx") == 0) char_device(false);
    return finish(call, 0);
}

}  // extern "C"
