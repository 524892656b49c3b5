// Linked into the unit tests and the program that traces.py makes: writes down which code a test runs
// through, a file a test or a start. The compiler calls it at the beginning of every block of the device's
// code.
//
// A file begins with the name of the test; a bit for every address of the program follows, from where it is
// loaded. It is mapped and shared: what a child does, or one that is killed, is in it, too.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

extern "C" char __executable_start, etext;
extern "C" void __sanitizer_cov_trace_pc();
void trace_begin(const char* test);

namespace {

constexpr size_t name_room = 4096;
unsigned char* map;

// A test may make calls fail, and count them: these are none of the program's, nor of its library.
long plain_call(long number, long a = 0, long b = 0, long c = 0, long d = 0, long e = 0, long f = 0) {
  register long r10 asm("r10") = d;
  register long r8 asm("r8") = e;
  register long r9 asm("r9") = f;
  long result;
  asm volatile("syscall"
               : "=a"(result)
               : "a"(number), "D"(a), "S"(b), "d"(c), "r"(r10), "r"(r8), "r"(r9)
               : "rcx", "r11", "memory");
  return result;
}

__attribute__((constructor(101))) void begin_with_the_program() {
  const char* test = getenv("PYTEST_CURRENT_TEST");
  if (test != nullptr) trace_begin(test);
}

}  // namespace

// What runs from here on is the test's.
void trace_begin(const char* test) {
  const size_t size = name_room + static_cast<size_t>(&etext - &__executable_start) / 8 + 1;
  timespec now;
  plain_call(SYS_clock_gettime, CLOCK_MONOTONIC, reinterpret_cast<long>(&now));
  char name[96];
  snprintf(name, sizeof(name), "/.harness/build/traces/%ld-%ld.%09ld", plain_call(SYS_getpid), now.tv_sec,
           now.tv_nsec);
  const long fd = plain_call(SYS_open, reinterpret_cast<long>(name), O_RDWR | O_CREAT | O_EXCL, 0666);
  if (fd < 0) return;
  plain_call(SYS_ftruncate, fd, static_cast<long>(size));
  plain_call(SYS_pwrite64, fd, reinterpret_cast<long>(test), static_cast<long>(strnlen(test, name_room)), 0);
  const long mapped =
      plain_call(SYS_mmap, 0, static_cast<long>(size), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  plain_call(SYS_close, fd);
  if (mapped > 0) map = reinterpret_cast<unsigned char*>(mapped) + name_room;
}

void __sanitizer_cov_trace_pc() {
  if (map == nullptr) return;
  const size_t at =
      static_cast<size_t>(static_cast<char*>(__builtin_return_address(0)) - &__executable_start);
  const auto bit = static_cast<unsigned char>(1u << at % 8);
  // Children write here, too: a bit is set in one step.
  if ((map[at / 8] & bit) == 0) __atomic_fetch_or(&map[at / 8], bit, __ATOMIC_RELAXED);
}
