// The LCD drawing layer: the one framebuffer of the phone, a 256-entry palette
// and four primitives that draw with palette indices. Every operation returns
// 0 on success and -1 on failure.
#pragma once

#include <cstdint>

// Learns the geometry of /dev/graphics/fb0 and pans the display to (0, 0).
int init_framebuffer();
// Opens and maps the framebuffer; -1 also when it is already open.
int open_framebuffer();
// Unmaps and closes whatever is open; always 0. The only way out of a failed open.
int close_framebuffer();

// A device-tree cell (4 bytes, big-endian) read from `path` into `out`.
int get_resolution(const char *path, uint32_t *out);
// The panel size from the device tree, falling back to the driver's geometry.
// The result is that of the height lookup.
int get_display_size(uint32_t *width, uint32_t *height);

// Palette entry `index` becomes `rgb` (0xRRGGBB); only while the framebuffer is open.
int setcolor(unsigned index, uint32_t rgb);
int pixel(int x, int y, unsigned color);
int line(int x0, int y0, int x1, int y1, unsigned color);
int rect(int x0, int y0, int x1, int y1, unsigned color);
int fillrect(int x0, int y0, int x1, int y1, unsigned color);

// Start-up: geometry, the palette the LCD tests use, the backlight. The OR of
// every step's result.
int init_display();
