#include <cstdio>
#include <cstdlib>
#include <memory>

#include "peripherals/memory_test.h"
#include "peripherals/sdram_march.h"
#include "platform/numbers.h"

namespace {

struct Free {
    void operator()(void *p) const { std::free(p); }
};
using Block = std::unique_ptr<uint8_t, Free>;

int fail() {
    std::puts("FAIL");
    return -1;
}

}  // namespace

int sdramMarch(volatile unsigned char *block, unsigned char expected, unsigned char value) {
    VolatileBytes mem{block};
    return march_pass(mem, kMemoryBlocks.test, expected, value);
}

int sdramTestWith(const char *word, BlockAllocator alloc) {
    int type = parse_int(word);
    if (type == 0 && word[0] != '0') {
        std::puts("FAIL. Invalid parameter.");
        return -1;
    }
    if (type != 0 && type != 1) {
        std::puts("FAIL. Type should be 0 or 1");
        return -1;
    }
    const unsigned block_size = kMemoryBlocks.test;
    const unsigned guard_size = kMemoryBlocks.guard;   // taken after the block, never written
    std::printf("Test in progress... for mem block=%u Bytes and %u Bytes. Please wait...\n",
                block_size, guard_size);
    Block block(static_cast<uint8_t *>(alloc(block_size, 1)));
    if (!block) {
        std::printf("FAIL to allocate %u Bytes of memory block\n", block_size);
        return -1;
    }
    Block guard(static_cast<uint8_t *>(alloc(guard_size, 1)));
    if (!guard) {
        std::printf("FAIL to allocate  %u Bytes of memory block\n", guard_size);
        return -1;
    }
    VolatileBytes mem{block.get()};
    if (read_zero_pass(mem, block_size) != 0) return fail();
    if (type == 1) {
        VolatileBytes guard_mem{guard.get()};
        if (long_march(mem, block_size, guard_mem, guard_size) != 0) return fail();
    }
    std::puts("PASS");
    return 0;
}

int sdramTest(const char *type) { return sdramTestWith(type, std::calloc); }
