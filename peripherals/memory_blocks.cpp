// The RAM test's block sizes (see memory_test.h).
#include "peripherals/memory_test.h"

const MemoryBlocks kMemoryBlocks = {67108864, 4194304};
