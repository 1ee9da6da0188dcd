// The phone's hardware-module loader: a module "ID" is the shared library
// /system/lib/hw/ID.default.so, described by its exported "HMI" record.
#include <cerrno>
#include <cstring>
#include <dlfcn.h>
#include <string>

#include "platform/hardware.h"
#include "sim/common/phone.h"

extern "C" int hw_get_module(const char *id, const HwModule **module) {
    if (!id || !module) return -EINVAL;
    // ftsim fault PHONE bt-hal-missing: the image has no Bluetooth module.
    if (std::strcmp(id, "bluetooth") == 0 && sim::fault("bt-hal-missing")) return -ENOENT;
    std::string path = std::string("/system/lib/hw/") + id + ".default.so";
    void *dso = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!dso) return -ENOENT;
    auto *hmi = static_cast<HwModule *>(dlsym(dso, "HMI"));
    if (!hmi || !hmi->id || std::strcmp(hmi->id, id) != 0) {
        dlclose(dso);
        return -EINVAL;
    }
    hmi->dso = dso;
    *module = hmi;
    return 0;
}
