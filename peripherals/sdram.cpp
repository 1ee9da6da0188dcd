#include <cstdio>
#include <cstdlib>
#include <memory>

#include "peripherals/memory_test.h"
#include "peripherals/sdram_march.h"
#include "platform/numbers.h"

namespace {

constexpr unsigned kBlockSize = 67108864;   // 64 MiB under test
constexpr unsigned kGuardSize = 4194304;    // 4 MiB taken after it, never written

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
    return march_pass(mem, kBlockSize, expected, value);
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
    std::printf("Test in progress... for mem block=%u Bytes and %u Bytes. Please wait...\n",
                kBlockSize, kGuardSize);
    Block block(static_cast<uint8_t *>(alloc(kBlockSize, 1)));
    if (!block) {
        std::printf("FAIL to allocate %u Bytes of memory block\n", kBlockSize);
        return -1;
    }
    Block guard(static_cast<uint8_t *>(alloc(kGuardSize, 1)));
    if (!guard) {
        std::printf("FAIL to allocate  %u Bytes of memory block\n", kGuardSize);
        return -1;
    }
    VolatileBytes mem{block.get()};
    if (read_zero_pass(mem, kBlockSize) != 0) return fail();
    if (type == 1) {
        VolatileBytes guard_mem{guard.get()};
        if (long_march(mem, kBlockSize, guard_mem, kGuardSize) != 0) return fail();
    }
    std::puts("PASS");
    return 0;
}

int sdramTest(const char *type) { return sdramTestWith(type, std::calloc); }
