#include "wireless/pause.h"

#include <unistd.h>

namespace {

void sleep_for_real(unsigned long us) { ::usleep(static_cast<useconds_t>(us)); }

}  // namespace

void (*wireless_sleep_us)(unsigned long us) = sleep_for_real;
