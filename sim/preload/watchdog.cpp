// /dev/watchdog: a file that keeps every byte the console writes to it.
#include <fcntl.h>

#include "sim/preload/nodes.h"

namespace {

constexpr preload::DeviceNode kWatchdog[] = {
    {"/dev/watchdog", "dev/watchdog", O_APPEND, nullptr},
};

__attribute__((constructor)) void register_watchdog() { preload::add_nodes(kWatchdog); }

}  // namespace
