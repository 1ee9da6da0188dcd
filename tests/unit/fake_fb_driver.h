#pragma once

#include <cstdint>

// A framebuffer driver behind /dev/graphics/fb0 while `present`: opening the
// node gives a descriptor of /dev/null whose screen-information ioctls answer
// from here. Every other open and ioctl goes to the system.
struct FakeFbDriver {
    bool present = false;
    uint32_t xres = 0, yres = 0;
    bool answers_fixed = true;   // FBIOGET_FSCREENINFO
    uint32_t smem_len = 0;
};

extern FakeFbDriver fake_fb;
