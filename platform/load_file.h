// Reads a whole file into memory, as the phone's system library helper does.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// The contents of `path` in a newly allocated buffer (with a NUL after the
// last byte), its length in *size; null on failure. Release it with free().
void *load_file(const char *path, unsigned *size);

#ifdef __cplusplus
}
#endif
