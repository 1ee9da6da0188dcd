#include <cstdio>
#include <unistd.h>

#include "peripherals/usb.h"
#include "platform/shell.h"
#include "platform/unique_fd.h"

namespace {

constexpr char kScsiHosts[] = "/sys/class/scsi_host";
// Run inside one hostN entry: the model of every device attached behind it.
constexpr char kModels[] = "find device/target*/ -name model | xargs cat";

}  // namespace

int usbList() {
    UniqueDir dir(opendir(kScsiHosts));
    if (!dir) {
        std::printf("FAIL to open dir %s.\n", kScsiHosts);
        return -1;
    }
    if (chdir(kScsiHosts) != 0) {
        std::printf("FAIL to open dir %s.\n", kScsiHosts);
        return -1;
    }
    bool any = false;
    while (const dirent *entry = readdir(dir.get())) {
        int n;
        if (std::sscanf(entry->d_name, "host%d", &n) != 1) continue;
        if (!any) std::puts("Attached devices:");
        any = true;
        std::printf("%s:\n", entry->d_name);
        // A host that went away meanwhile lists nothing rather than its neighbours.
        if (chdir(entry->d_name) != 0) continue;
        shell_run(kModels);
        if (chdir(kScsiHosts) != 0) break;
    }
    dir.reset();
    if (!any) std::puts("No devices found.");
    return 0;
}
