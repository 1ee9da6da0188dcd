// Backlight and LED commands, through the maker's platform library. Each prints
// PASS or FAIL and returns 0 on success, non-zero on failure.
#pragma once

int backlightTest(const char *word);      // off | on | dimmest | brightest
int rawBacklightTest(const char *word);   // a raw level, 0 up to the platform's maximum
int ledTest(const char *word);            // on | off | flash
