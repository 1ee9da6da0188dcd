// The flash file test and the RAM test.
#pragma once

#include <cstddef>

int flashTest();
int sdramTest(const char *type);

// The RAM test with the allocator it takes its two zero-filled blocks from
// (calloc on the phone); a test hands it one that refuses a block.
using BlockAllocator = void *(*)(size_t count, size_t size);
int sdramTestWith(const char *type, BlockAllocator alloc);

// One march pass over the 64 MiB test block: 0, or -1 at the first mismatch.
int sdramMarch(volatile unsigned char *block, unsigned char expected, unsigned char value);
