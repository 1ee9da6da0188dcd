// Keypad reporting: a reader thread on the keypad's event device prints every
// key event while `key 1` is in force.
#pragma once

int keyTestInit();
int keyTestDestroy();
int keyTest(const char *mode);
