// The Bluetooth handset's cradle and its charger.
#pragma once

int cradleTest(const char *action);
