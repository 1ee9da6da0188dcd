// Android's hardware-module loader (libhardware): a module is a shared library
// with a well-known descriptor; opening it gives a device. The layouts follow
// the system's ABI, word for word, on 32- and 64-bit builds alike.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

struct HwModule;
struct HwDevice;

struct HwModuleMethods {
    // Opens the device `id` of `module`; 0 and *device set, or a negative errno.
    int (*open)(const struct HwModule *module, const char *id, struct HwDevice **device);
};

struct HwModule {
    uint32_t tag;
    uint16_t module_api_version;
    uint16_t hal_api_version;
    const char *id;
    const char *name;
    const char *author;
    struct HwModuleMethods *methods;
    void *dso;
    uintptr_t reserved[32 - 7];
};

struct HwDevice {
    uint32_t tag;
    uint32_t version;
    struct HwModule *module;
    uintptr_t reserved[12];
    int (*close)(struct HwDevice *device);
};

// Finds and loads the module `id` ("bluetooth"); 0 and *module set, or a negative errno.
int hw_get_module(const char *id, const struct HwModule **module);

#ifdef __cplusplus
}
#endif
