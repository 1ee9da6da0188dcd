// libeeprom: the phone's factory-data store.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// Index (0..32) of a parameter name, or -1 when the store does not know it.
int eeprom_nameToIndex(const char *name);
// Copies the value of `index` into `buf` (NUL-terminated when it fits in `size`).
// 0 on success, negative on failure.
int eeprom_read(int index, char *buf, int size);
// Stores `value` at `index`; negative on failure.
int eeprom_write(int index, const char *value);
// 0 takes the store out of factory mode (OPERATIONAL_MODE then reads non-zero).
int eeprom_set_rw_mode(int mode);

#ifdef __cplusplus
}
#endif
