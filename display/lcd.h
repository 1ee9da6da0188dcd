// LCD test patterns. Each draws on the framebuffer, leaves the picture there and
// prints PASS or FAIL; argument errors print their message and return -1.
#pragma once

int lcd_fill(const char *color);
int lcd_crosshair();
int lcd_invertgrid(const char *color);
int lcd_half_filled();
int lcd_fl(const char *bars, const char *color1, const char *color2);
int lcd_digit(const char *color, const char *digit);
