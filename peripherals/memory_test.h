// The flash file test and the RAM test.
#pragma once

#include <cstddef>

int flashTest();
int sdramTest(const char *type);

// The RAM test with the allocator it takes its two zero-filled blocks from
// (calloc on the phone); a test hands it one that refuses a block.
using BlockAllocator = void *(*)(size_t count, size_t size);
int sdramTestWith(const char *type, BlockAllocator alloc);

// The RAM test's two blocks: the one under test (64 MiB) and the guard taken
// after it (4 MiB, only read). They live in an object of their own
// (memory_blocks.cpp), so that a harness that runs the test many thousand
// times (the fuzz target) links smaller ones in their place.
struct MemoryBlocks {
    unsigned test;
    unsigned guard;
};
extern const MemoryBlocks kMemoryBlocks;

// One march pass over the test block: 0, or -1 at the first mismatch.
int sdramMarch(volatile unsigned char *block, unsigned char expected, unsigned char value);
