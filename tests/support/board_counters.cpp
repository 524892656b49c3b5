// Counts of a program on a virtual board, in memory of the host: it keeps them when the board's power is cut.
// Linked into a build of the device's program that counts (preset coverage-arm), instead of the compiler's
// own runtime, which would write a file when the program ends.
//
// What the compiler has counted with -runtime-counter-relocation lies __llvm_profile_counter_bias bytes
// behind the section of counters (compiler-rt's InstrProfData.inc). The board has a PCI device whose second
// region is a file of the host (board/machine.py); it is mapped, and counted in from then on.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>

extern "C" {
// The linker keeps what these bound, and tests/campaign/board_profile.py reads it from the program.
extern uint64_t __start___llvm_prf_cnts[] __attribute__((visibility("hidden")));
extern uint64_t __stop___llvm_prf_cnts[] __attribute__((visibility("hidden")));
extern char __start___llvm_prf_data[] __attribute__((visibility("hidden")));
extern char __start___llvm_prf_names[] __attribute__((visibility("hidden")));
extern int64_t __llvm_profile_counter_bias;
// The compiler refers to it so that a runtime is linked.
int __llvm_profile_runtime = 0;
}

namespace {

#define DEVICE "/sys/bus/pci/devices/0000:00:12.0/"

// Before the program's own constructors.
__attribute__((constructor(101))) void count_in_the_host() {
  [[maybe_unused]] static const char* volatile kept[] = {__start___llvm_prf_data, __start___llvm_prf_names};
  const int enable = open(DEVICE "enable", O_WRONLY | O_CLOEXEC);
  const bool enabled = enable >= 0 && write(enable, "1", 1) == 1;
  close(enable);
  const int region = enabled ? open(DEVICE "resource2", O_RDWR | O_CLOEXEC) : -1;
  const auto size = static_cast<size_t>(__stop___llvm_prf_cnts - __start___llvm_prf_cnts) * sizeof(uint64_t);
  void* const counters = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, region, 0);
  close(region);
  if (counters == MAP_FAILED) {
    return;
  }
  __llvm_profile_counter_bias =
      static_cast<char*>(counters) - reinterpret_cast<char*>(__start___llvm_prf_cnts);
}

}  // namespace
