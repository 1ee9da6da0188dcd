// How a simulated device joins the preload library: it registers the device
// nodes it stands in for, and answers the ioctls made on them.
#pragma once

#include <cstddef>
#include <dlfcn.h>
#include <string>

namespace preload {

struct DeviceNode {
    // The path the console opens. A path ending in '/' covers everything below
    // it (and the folder itself, for opendir and stat).
    const char *path;
    // The stand-in, relative to the phone's folder; same trailing '/' rule.
    const char *file;
    // Added to the console's open flags (O_APPEND: the file records every write).
    int extra_flags;
    // ioctls on a descriptor opened through this node; null leaves them to the
    // file itself. Returns what ioctl returns, errno set on failure.
    int (*ioctl)(int fd, unsigned long request, void *arg);
    // Asked before a descriptor opened through this node is mapped: non-zero
    // refuses the mapping (errno set). Null maps the stand-in file itself.
    int (*mmap_check)(int fd) = nullptr;
    // Asked before `path` (a path under this node) is opened: non-zero refuses
    // the open (errno set), as for a file the phone's image lacks.
    int (*open_check)(const char *path) = nullptr;
    // A close of a descriptor opened through this node, or an unmap of a mapping
    // of it, counts a change of the phone (sim::note_change): the framebuffer's
    // users draw, then close or unmap, so the picture is whole by then.
    bool release_is_change = false;
    // Asked before and after each read of a descriptor opened through this
    // node: non-zero fails the read (errno set), whatever it brought.
    int (*read_check)(int fd) = nullptr;
};

// Registers a family of nodes; call it from a static constructor of the device's file.
void add_nodes(const DeviceNode *nodes, size_t count);

template <size_t N>
void add_nodes(const DeviceNode (&nodes)[N]) {
    add_nodes(nodes, N);
}

// The node that descriptor `fd` was opened through, or null.
const DeviceNode *node_of(int fd);

// The stand-in of `path` when it is a phone node (and the node), else false.
bool map_path(const char *path, std::string &stand_in, const DeviceNode **node = nullptr);

// True in the console's own process (whatever has run of its start-up).
bool is_console_process();
// True once the console's emulation is switched on.
bool console_active();

// Storage faults (storage.cpp): false refuses the console's fopen of `path`
// with `mode`, or its opendir of `path` (errno set); true when removing `path`
// is to fail.
bool storage_open_allowed(const char *path, const char *mode);
bool folder_open_allowed(const char *path);
bool cache_undeletable(const char *path);

// The next definition of a wrapped libc symbol.
template <typename Fn>
Fn next(const char *name) {
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

}  // namespace preload
