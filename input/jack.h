// Headset jack reporting: a reader thread on the jack's event device prints
// plugs (jackdet) and headset buttons (jackkeydet).
#pragma once

int jackTestInit();
int jackTestDestroy();
int jackTest(const char *mode);      // jackdet
int jackKeyTest(const char *mode);   // jackkeydet
