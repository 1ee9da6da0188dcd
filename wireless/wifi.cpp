#include "wireless/wifi.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>

#include "platform/shell.h"
#include "platform/tolma.h"
#include "platform/unique_fd.h"
#include "wireless/modules.h"
#include "wireless/pause.h"

namespace {

constexpr char kModuleList[] = "/proc/modules";
constexpr char kMlanPath[] = "/system/lib/modules/mlan.ko";
constexpr char kSdPath[] = "/system/lib/modules/sd8xxx.ko";
constexpr char kSdParams[] =
    "reg_alpha2=00 sta_name=wlan uap_name=wlan wfd_name=wlan cal_data_cfg=none";
constexpr char kMacFile[] = "/sys/class/net/wlan0/address";

constexpr int kUnloadChecks = 20;
constexpr unsigned long kHalfSecondUs = 500000;
constexpr unsigned long kScanSettleUs = 1000000;

constexpr char kStartFailed[] = "FAIL\nft : Err: failed to start WiFi service, retry.";
constexpr char kStopFailed[] = "FAIL\nft : Err: failed to stop WiFi service, retry.";

// What a failed load reports; its first line has no line end: the next line's
// text ends it, as on the phone.
using LoadFailure = char[256];

// Loads mlan, then sd8xxx; 0, or -1 with the report in `failure`. The report
// is printed after the removal's retries, in one call: no event line may come
// inside it, and no reader waits for the retries.
int load_driver(LoadFailure &failure) {
    if (load_module(kMlanPath, "") != ModuleLoad::kLoaded) {
        std::snprintf(failure, sizeof failure, "wifi_load_driver %s failed", kMlanPath);
        return -1;
    }
    if (load_module(kSdPath, kSdParams) == ModuleLoad::kLoaded) return 0;
    // No half-loaded driver: mlan goes again.
    if (remove_module("mlan") == 0) {
        std::snprintf(failure, sizeof failure, "wifi_load_driver %s failed", kSdPath);
    } else {
        std::snprintf(failure, sizeof failure,
                      "wifi_load_driver %s failedUnable to unload driver module \"mlan\": %s\n"
                      "wifi_load_driver : failed to unload %s\n",
                      kSdPath, std::strerror(errno), kSdPath);
    }
    return -1;
}

}  // namespace

extern "C" int is_wifi_driver_loaded() {
    UniqueFile list(std::fopen(kModuleList, "re"));
    if (!list) {
        std::printf("Could not open %s: %s", kModuleList, std::strerror(errno));
        return 0;
    }
    // Pieces of a line count too: the kernel's lines are longer than this buffer.
    char piece[18];
    while (std::fgets(piece, sizeof piece, list.get())) {
        if (std::strncmp(piece, "sd8xxx ", 7) == 0) return 1;
    }
    return 0;
}

int unload_driver_module(const char *name) {
    if (remove_module(name) == 0) return 0;
    std::printf("Unable to unload driver module \"%s\": %s\n", name, std::strerror(errno));
    return -1;
}

extern "C" int wifi_load_driver() {
    LoadFailure failure;
    if (load_driver(failure) == 0) return 0;
    std::fputs(failure, stdout);
    return -1;
}

extern "C" int wifi_unload_driver() {
    if (unload_driver_module("sd8xxx") != 0) return -1;
    if (unload_driver_module("mlan") != 0) return -1;
    bool gone = false;
    for (int check = 0; check < kUnloadChecks; ++check) {
        if (!is_wifi_driver_loaded()) {
            gone = true;
            break;
        }
        wireless_sleep_us(kHalfSecondUs);
    }
    // The driver lets go of the chip a little after it leaves the list.
    wireless_sleep_us(kHalfSecondUs);
    return gone ? 0 : -1;
}

int wifi_start() {
    if (is_wifi_driver_loaded()) {
        std::puts("ft : WiFi service already running.");
        return 0;
    }
    LoadFailure failure;
    if (load_driver(failure) != 0) {
        std::printf("%sft: Err starting WiFi service\n%s\n", failure, kStartFailed);
        return -1;
    }
    if (shell_run("ip link set wlan0 up") == -1) {
        std::printf("ft: Err starting WiFi service errno = %d\n", errno);
        std::puts(kStartFailed);
        return -1;
    }
    std::puts("ft: WiFi started.");
    return 0;
}

int wifi_stop() {
    if (!is_wifi_driver_loaded()) {
        std::puts("ft : WiFi service already stopped.");
        return 0;
    }
    if (shell_run("ip link set wlan0 down") == -1) {
        std::printf("ft: Err stopping WiFi service errno = %d\n", errno);
        std::puts(kStopFailed);
        return -1;
    }
    if (wifi_unload_driver() == -1) {
        std::puts("ft: Err stopping WiFi service");
        std::puts(kStopFailed);
        return -1;
    }
    std::puts("ft: WiFi stopped.");
    return 0;
}

int wifi_mac_get() {
    if (wifi_start() == -1) return -1;
    constexpr char kNoMac[] = "FAIL\nft: Err getting WiFi MAC address ";
    struct stat st;
    if (::stat(kMacFile, &st) != 0) {
        std::puts(kNoMac);
        return -1;
    }
    std::puts("ft : MAC Address");
    if (shell_run("cat /sys/class/net/wlan0/address") == -1) {
        std::puts(kNoMac);
        return -1;
    }
    return 0;
}

int wifi_scan() {
    if (wifi_start() == -1) return -1;
    std::puts("ft: Initiating wifi scan... ");
    wireless_sleep_us(kScanSettleUs);
    if (shell_run("iwlist wlan0 scan") == -1) {
        std::puts("FAIL\nft: Err scanning WiFi APs");
        return -1;
    }
    std::puts("ft: Done, check AP list above. ");
    return 0;
}

int wifi_cap() {
    int present = -1;
    int rc = Cap_WiFi(&present);
    std::puts(rc == 0 && present == 1 ? "PASS" : "FAIL");
    return rc;
}
