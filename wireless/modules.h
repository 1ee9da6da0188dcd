// The radios' kernel modules, as the Wi-Fi and Bluetooth code both load and
// remove them. Neither prints: the caller owns the words.
#pragma once

enum class ModuleLoad { kLoaded, kNoImage, kRefused };

// Reads the image at `path` and links it into the kernel with `params`.
ModuleLoad load_module(const char *path, const char *params);

// Removes the module `name`, trying again every half second, ten times at
// most, while it is busy; 0, or -1 with errno from the last attempt.
int remove_module(const char *name);
