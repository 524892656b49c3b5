// Whole numbers only: the device has no floating point unit.
#include "util/elapsed.h"

long timespec_elapsed_ms(const timespec& start, const timespec& end) {
  constexpr long ns_per_second = 1000000000;
  constexpr long ns_per_ms = 1000000;
  const long seconds = static_cast<long>(end.tv_sec - start.tv_sec);
  if (end.tv_nsec >= start.tv_nsec) {
    return (end.tv_nsec - start.tv_nsec) / ns_per_ms + 1000 * seconds;
  }
  return (end.tv_nsec + ns_per_second - start.tv_nsec) / ns_per_ms + 1000 * (seconds - 1);
}
