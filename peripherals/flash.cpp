#include <cstdio>
#include <cstring>
#include <string_view>

#include "peripherals/memory_test.h"
#include "platform/unique_fd.h"

namespace {

constexpr char kFile[] = "/cache/test.txt";
constexpr char kText[] = "I am testing the flash";   // written with its terminating zero

}  // namespace

int flashTest() {
    UniqueFile out(std::fopen(kFile, "w+"));
    if (!out) {
        std::printf("FAIL to open file %s for write operation\n", kFile);
        return -1;
    }
    std::fwrite(kText, 1, sizeof kText, out.get());
    out.reset();

    UniqueFile in(std::fopen(kFile, "r"));
    if (!in) {
        std::printf("FAIL to open file %s for read operation\n", kFile);
        return -1;
    }
    char buf[50];
    size_t n = std::fread(buf, 1, sizeof buf, in.get());
    in.reset();
    std::remove(kFile);   // checked below by opening it again

    if (std::string_view(buf, strnlen(buf, n)) != kText) {
        std::printf("FAIL. The string in %s does not match the string that was written to the file\n",
                    kFile);
        return -1;
    }
    if (UniqueFile(std::fopen(kFile, "r"))) {
        std::printf("FAIL to remove %s file\n", kFile);
        return -1;
    }
    std::puts("PASS");
    return 0;
}
