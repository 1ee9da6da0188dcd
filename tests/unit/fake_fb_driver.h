#pragma once

#include <cstdint>

// A framebuffer driver behind /dev/graphics/fb0 while `present`: the node
// opens as /dev/null (the unit tests' open redirects through
// fake_device_path), and its screen-information ioctls answer from here.
// Every other ioctl goes to the system.
struct FakeFbDriver {
    bool present = false;
    uint32_t xres = 0, yres = 0;
    bool answers_fixed = true;   // FBIOGET_FSCREENINFO
    uint32_t smem_len = 0;
};

extern FakeFbDriver fake_fb;

// The path a unit test's open really opens for `path`.
const char *fake_device_path(const char *path);
