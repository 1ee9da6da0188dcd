#include "wireless/modules.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <memory>

#include "platform/kernel_modules.h"
#include "platform/load_file.h"
#include "wireless/pause.h"

namespace {

constexpr int kRemoveAttempts = 10;
constexpr unsigned long kRemovePauseUs = 500000;

}  // namespace

ModuleLoad load_module(const char *path, const char *params) {
    unsigned size = 0;
    std::unique_ptr<void, decltype(&std::free)> image(load_file(path, &size), std::free);
    if (!image) return ModuleLoad::kNoImage;
    return init_module(image.get(), size, params) == 0 ? ModuleLoad::kLoaded : ModuleLoad::kRefused;
}

int remove_module(const char *name) {
    int err = 0;
    for (int attempt = 0; attempt < kRemoveAttempts; ++attempt) {
        if (delete_module(name, O_NONBLOCK | O_EXCL) == 0) return 0;
        err = errno;
        // Only a module busy for the moment is worth waiting for.
        if (err != EAGAIN) break;
        wireless_sleep_us(kRemovePauseUs);
    }
    errno = err;   // the pause may have changed it
    return -1;
}
