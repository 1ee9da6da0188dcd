// The drawing layer's one context record. Only drvfb.cpp touches it; the unit
// tests attach a memory buffer through it to watch the pixels.
#pragma once

#include <cstdint>
#include <pthread.h>

struct FbContext {
    int32_t fd = -1;
    int32_t open_state = 0;    // 0 closed; -1 opening or failed open; 1 open and mapped
    uint32_t *base = nullptr;
    uint32_t size = 0;         // bytes mapped: xres * yres * 4
    uint32_t xres = 0;         // also the row stride in pixels
    uint32_t yres = 0;
    uint32_t bpp = 32;         // as the driver reports it; only logged
    uint8_t palette[256][4] = {};   // blue, green, red, alpha in memory order
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;

    FbContext() = default;
    FbContext(const FbContext &) = delete;
    FbContext &operator=(const FbContext &) = delete;
};

extern FbContext fb_context;
