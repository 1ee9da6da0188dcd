// The USB camera module: the resolution marker and the four test steps.
#pragma once

int cameraInit();
int cameraDestroy();
int cameraTest(const char *action);
