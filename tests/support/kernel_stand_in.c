/* Preloaded into the program: answers what only the device's kernel knows, notes it, and breaks calls on
 * request.
 *
 * - ioctl: every request is logged with its bytes. Requests of the MTD interface on /dev/mtd* and the three
 * partition requests of the device's kernel act on /proc/mtd and the node files of the root; those on sockets
 * are about the interface of ethernet.h; TIOCSRS485 succeeds. All others go to the host's kernel. A test's
 * rule may answer any of them instead.
 * - sleep and its kin are logged and shortened; time-outs of select are real unless the test scales them.
 * - Calls that a test chose (struct call_rule in control.h) fail, or move fewer bytes than asked.
 *
 * A rule is compared with the subject of a call: the path for calls on paths and descriptors, the command
 * line for posix_spawn, "program" or "reader" for waitpid (which of them calls it), the size for malloc and
 * mmap, path and number ("/dev/mtd0 0x40044d17") for ioctl, else "".
 *
 * While the tally is on, all such calls are logged, so that a test can make each of them fail in turn.
 *
 * The library is inert outside of a device root. */
#define _GNU_SOURCE
#include "control.h"
#include "ethernet.h"
#include "event_log.h"
#include "flash_requests.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdbool.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/wait.h>
#include <termios.h>

/* The call of 32-bit processors counts the offset in pages. */
#ifdef SYS_mmap2
#define MAP SYS_mmap2
#else
#define MAP SYS_mmap
#endif

static struct control* control;
static pid_t program; /* the process that this library was loaded into; its children are readers */

static void __attribute__((constructor)) map_control(void) {
  program = getpid();
  long fd = syscall(SYS_openat, AT_FDCWD, CONTROL_FILE, O_RDWR | O_CLOEXEC, 0);
  if (fd < 0) {
    return;
  }
  long page = syscall(MAP, 0, sizeof *control, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  syscall(SYS_close, fd);
  if (page > 0 || page < -4095) {
    control = (struct control*)page;
  }
}

/* The C library's own function of that name. */
#define REAL(type, name, ...)                 \
  static type (*real)(__VA_ARGS__);           \
  if (real == NULL) {                         \
    *(void**)&real = dlsym(RTLD_NEXT, #name); \
  }

/* ------------------------------------------------------------------ subjects, rules, traces */

struct subject {
  char text[512];
};

static struct subject path_subject(const char* path) {
  struct subject subject;
  snprintf(subject.text, sizeof subject.text, "%s", path != NULL ? path : "");
  return subject;
}

static struct subject fd_subject(int fd) {
  struct subject subject = {""};
  char link[64];
  snprintf(link, sizeof link, "/.harness/proc/self/fd/%d", fd);
  long length = syscall(SYS_readlinkat, AT_FDCWD, link, subject.text, sizeof subject.text - 1);
  subject.text[length > 0 ? length : 0] = '\0';
  if (strncmp(subject.text, "socket:", 7) == 0 || strncmp(subject.text, "pipe:", 5) == 0) {
    *strchr(subject.text, ':') = '\0';
  }
  return subject;
}

static struct subject number_subject(size_t number) {
  struct subject subject;
  snprintf(subject.text, sizeof subject.text, "%zu", number);
  return subject;
}

/* While the stand-in itself works, with calls that the device does not make. Known without a call: the sanitizers' runtime
 * asks for memory before the one that looks such a variable up can be made. */
static _Thread_local __attribute__((tls_model("initial-exec"))) bool at_work;

/* Is there a rule for this call at all, or the tally on? Keeps subjects from being made in vain. */
static bool has_rule(const char* call) {
  if (at_work) {
    return false;
  }
  if (control != NULL && control->tally != 0) {
    return true;
  }
  for (int i = 0; control != NULL && i < CONTROL_RULES; i++) {
    if (strcmp(control->rules[i].call, call) == 0) {
      return true;
    }
  }
  return false;
}

static void note_call(const char* call, const char* subject) {
  int error = errno;
  struct event event;
  event_begin(&event, "call");
  event_field(&event, call);
  event_field(&event, subject);
  event_write(&event);
  errno = error;
}

static bool matches(const struct call_rule* rule, const char* subject, bool whole) {
  if (rule->match[0] == '=') {
    return strcmp(subject, rule->match + 1) == 0;
  }
  return rule->match[0] == '\0' ||
         (whole ? strcmp(subject, rule->match) == 0 : strstr(subject, rule->match) != NULL);
}

/* The rule that catches this call now, its counters moved on, or NULL. */
static struct call_rule* caught(const char* call, const char* subject, bool whole) {
  if (control != NULL && control->tally != 0) {
    note_call(call, subject);
  }
  for (int i = 0; control != NULL && i < CONTROL_RULES; i++) {
    struct call_rule* rule = &control->rules[i];
    if (strcmp(rule->call, call) != 0 || (rule->times >= 0 && rule->fired >= rule->times)) {
      continue;
    }
    if (!matches(rule, subject, whole)) {
      continue;
    }
    if (rule->skip > 0) {
      rule->skip--;
      continue;
    }
    rule->fired++;
    return rule;
  }
  return NULL;
}

static void note_caught(const char* call, const char* subject, const struct call_rule* rule) {
  struct event event;
  event_begin(&event, "caught");
  event_field(&event, call);
  event_field(&event, subject);
  event_field(&event, rule->error != 0 ? strerrorname_np(rule->error) : "");
  event_fieldf(&event, "%lld", (long long)rule->result);
  event_write(&event);
  errno = rule->error != 0 ? rule->error : errno;
}

/* In a replaced function: when a rule catches the call, return the rule's result at once. */
#define CATCH(call, make_subject, type)                       \
  if (has_rule(call)) {                                       \
    struct subject subject_ = make_subject;                   \
    struct call_rule* rule_ = caught(call, subject_.text, 0); \
    if (rule_ != NULL) {                                      \
      note_caught(call, subject_.text, rule_);                \
      return (type)rule_->result;                             \
    }                                                         \
  }
#define CATCH_POINTER(call, make_subject, whole, failure)         \
  if (has_rule(call)) {                                           \
    struct subject subject_ = make_subject;                       \
    struct call_rule* rule_ = caught(call, subject_.text, whole); \
    if (rule_ != NULL) {                                          \
      note_caught(call, subject_.text, rule_);                    \
      return failure;                                             \
    }                                                             \
  }

static bool traced(const char* path) {
  for (int i = 0; control != NULL && i < CONTROL_TRACES; i++) {
    size_t length = strlen(control->trace[i]);
    if (length > 0 && strncmp(path, control->trace[i], length) == 0) {
      return true;
    }
  }
  return false;
}

static bool tracing(void) {
  return control != NULL && control->trace[0][0] != '\0';
}

static void event_result(struct event* event, long result) {
  if (result < 0) {
    const char* name = strerrorname_np(errno);
    event_field(event, name != NULL ? name : "?");
  } else {
    event_fieldf(event, "%ld", result);
  }
}

/* ------------------------------------------------------------------ ioctl */

/* How many bytes the argument points to; the old requests do not carry their size. */
static size_t argument_size(unsigned long request) {
  switch (request) {
    case TIOCSRS485:
    case TIOCGRS485:
      return 32;
    case MTD_CREATE:
      return sizeof(struct creation);
    case MTD_DELETE:
      return sizeof(int32_t);
    case MTD_MERGE:
      return 2;
    case SIOCETHTOOL:
    case SIOCGIFADDR:
    case SIOCGIFNETMASK:
    case SIOCGIFHWADDR:
    case SIOCGIFFLAGS:
      return sizeof(struct ifreq);
    default:
      return _IOC_DIR(request) != _IOC_NONE ? _IOC_SIZE(request) : 0;
  }
}

/* Some callers send a number where the request has room for a pointer; the first page never holds anything.
 */
static bool is_pointer(const void* argument) {
  return (uintptr_t)argument >= 4096;
}

/* The bytes of a request: what the argument points to, and for the two requests whose record points on, what
 * that points to. */
static void event_argument(struct event* event, unsigned long request, const void* argument) {
  size_t size = argument_size(request);
  if (request == MTD_CREATE && is_pointer(argument)) {
    const struct creation* creation = argument;
    uint32_t count = creation->count < 64 ? creation->count : 64;
    event_field_hex(event, creation->partitions, count * sizeof(struct new_partition));
  } else if (request == SIOCETHTOOL && is_pointer(argument)) {
    const struct ifreq* ifreq = argument;
    unsigned char bytes[IFNAMSIZ + 44];
    size_t record = *(const uint32_t*)(const void*)ifreq->ifr_data == 0xA ? 8 : 44;
    memcpy(bytes, ifreq->ifr_name, IFNAMSIZ);
    memcpy(bytes + IFNAMSIZ, ifreq->ifr_data, record);
    event_field_hex(event, bytes, IFNAMSIZ + record);
  } else if (size > 0 && is_pointer(argument)) {
    event_field_hex(event, argument, size);
  } else {
    event_fieldf(event, "%lx", (unsigned long)argument);
  }
}

static int answer_by_rule(const struct call_rule* rule, void* argument) {
  if (rule->data_length > 0) {
    memcpy(argument, rule->data, rule->data_length);
  }
  if (rule->error != 0) {
    errno = rule->error;
  }
  return (int)rule->result;
}

static int answer_as_kernel(const char* path, int fd, unsigned long request, void* argument) {
  REAL(int, ioctl, int, unsigned long, ...)
  int number = -1;
  if (sscanf(path, "/dev/mtd%d", &number) == 1) {
    at_work = true;
    const int result = flash_request(number, request, argument);
    at_work = false;
    return result;
  }
  if (strcmp(path, "socket") == 0) {
    at_work = true;
    const int result = ethernet_request(request, argument);
    at_work = false;
    return result;
  }
  return request == TIOCSRS485 ? 0 : real(fd, request, argument);
}

int ioctl(int fd, unsigned long request, ...) {
  va_list args;
  va_start(args, request);
  void* argument = va_arg(args, void*);
  va_end(args);
  request &= 0xffffffffUL;
  struct subject path = fd_subject(fd);
  struct event event;
  event_begin(&event, "ioctl");
  event_field(&event, path.text);
  event_fieldf(&event, "0x%08lx", request);
  event_argument(&event, request, argument);
  size_t used = strlen(path.text);
  snprintf(path.text + used, sizeof path.text - used, " 0x%08lx", request);
  struct call_rule* rule = caught("ioctl", path.text, false);
  path.text[used] = '\0';
  int result =
      rule != NULL ? answer_by_rule(rule, argument) : answer_as_kernel(path.text, fd, request, argument);
  int error = errno;
  event_result(&event, result);
  if (control != NULL) {
    event_write(&event);
  }
  errno = error;
  return result;
}

/* ------------------------------------------------------------------ sleeping */

static double scale(void) {
  return control != NULL ? control->sleep_scale : 1.0;
}

static void note_sleep(double seconds) {
  struct event event;
  event_begin(&event, "sleep");
  event_fieldf(&event, "%g", seconds);
  if (control != NULL) {
    event_write(&event);
  }
}

static struct timespec scaled(const struct timespec* time) {
  double nanoseconds = ((double)time->tv_sec * 1e9 + (double)time->tv_nsec) * scale();
  long long whole = (long long)nanoseconds;
  return (struct timespec){.tv_sec = whole / 1000000000, .tv_nsec = whole % 1000000000};
}

int nanosleep(const struct timespec* time, struct timespec* left) {
  REAL(int, nanosleep, const struct timespec*, struct timespec*)
  note_sleep((double)time->tv_sec + (double)time->tv_nsec / 1e9);
  struct timespec shorter = scaled(time);
  return real(&shorter, left);
}

int clock_nanosleep(clockid_t clock, int flags, const struct timespec* time, struct timespec* left) {
  REAL(int, clock_nanosleep, clockid_t, int, const struct timespec*, struct timespec*)
  if (flags != 0) {
    return real(clock, flags, time, left);
  }
  note_sleep((double)time->tv_sec + (double)time->tv_nsec / 1e9);
  struct timespec shorter = scaled(time);
  return real(clock, flags, &shorter, left);
}

unsigned sleep(unsigned seconds) {
  const struct timespec time = {.tv_sec = seconds};
  return nanosleep(&time, NULL) == 0 ? 0 : seconds;
}

int usleep(useconds_t microseconds) {
  const struct timespec time = {.tv_sec = microseconds / 1000000, .tv_nsec = microseconds % 1000000 * 1000};
  return nanosleep(&time, NULL);
}

/* Without descriptors it is a sleep that a signal can end at any moment. */
int pselect(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, const struct timespec* time,
            const sigset_t* mask) {
  REAL(int, pselect, int, fd_set*, fd_set*, fd_set*, const struct timespec*, const sigset_t*)
  if (count != 0 || time == NULL) {
    return real(count, readable, writable, exceptional, time, mask);
  }
  note_sleep((double)time->tv_sec + (double)time->tv_nsec / 1e9);
  struct timespec shorter = scaled(time);
  return real(count, readable, writable, exceptional, &shorter, mask);
}

/* ------------------------------------------------------------------ opening, reading, writing */

static int note_open(const char* path, int flags, int result) {
  int error = errno;
  if (strncmp(path, "/dev/ttyS", 9) == 0 || traced(path)) {
    struct event event;
    event_begin(&event, "open");
    event_field(&event, path);
    event_fieldf(&event, "%#o", (unsigned)flags & ~(unsigned)(O_CLOEXEC | O_LARGEFILE));
    event_result(&event, result < 0 ? -1 : 0);
    if (control != NULL) {
      event_write(&event);
    }
  }
  errno = error;
  return result;
}

static int open_with(int (*real)(const char*, int, ...), const char* path, int flags, mode_t mode) {
  CATCH("open", path_subject(path), int)
  return note_open(path, flags, real(path, flags, mode));
}

#define DEFINE_OPEN(name)                                                          \
  int name(const char* path, int flags, ...) {                                     \
    REAL(int, name, const char*, int, ...)                                         \
    va_list args;                                                                  \
    va_start(args, flags);                                                         \
    mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(args, mode_t) : 0; \
    va_end(args);                                                                  \
    return open_with(real, path, flags, mode);                                     \
  }
DEFINE_OPEN(open)
DEFINE_OPEN(open64)

int __open_2(const char* path, int flags) {
  return open(path, flags);
}

int __open64_2(const char* path, int flags) {
  return open64(path, flags);
}

#define DEFINE_FOPEN(name)                                  \
  FILE* name(const char* path, const char* mode) {          \
    REAL(FILE*, name, const char*, const char*)             \
    CATCH_POINTER("fopen", path_subject(path), false, NULL) \
    return real(path, mode);                                \
  }
DEFINE_FOPEN(fopen)
DEFINE_FOPEN(fopen64)

static void note_transfer(const char* kind, int fd, const void* data, ssize_t result) {
  int error = errno;
  if (tracing()) {
    struct subject path = fd_subject(fd);
    if (traced(path.text)) {
      struct event event;
      size_t size = result > 0 ? (size_t)result : 0;
      event_begin(&event, kind);
      event_field(&event, path.text);
      event_result(&event, result);
      event_fieldf(&event, "%08x", event_crc32(0, data, size));
      event_field_bytes(&event, data, size <= EVENT_SMALL ? size : 0);
      event_write(&event);
    }
  }
  errno = error;
}

/* A rule without an error limits the size: a short write, a short read, or with 0 the end of input. */
static bool limited(const char* call, int fd, size_t* size, ssize_t* result) {
  if (!has_rule(call)) {
    return false;
  }
  struct subject subject = fd_subject(fd);
  const struct call_rule* rule = caught(call, subject.text, false);
  if (rule == NULL) {
    return false;
  }
  note_caught(call, subject.text, rule);
  if (rule->error != 0 || rule->result <= 0) {
    *result = (ssize_t)rule->result;
    return true;
  }
  *size = *size < (size_t)rule->result ? *size : (size_t)rule->result;
  return false;
}

ssize_t write(int fd, const void* data, size_t size) {
  REAL(ssize_t, write, int, const void*, size_t)
  ssize_t result = -1;
  if (!limited("write", fd, &size, &result)) {
    result = real(fd, data, size);
  }
  note_transfer("write", fd, data, result);
  return result;
}

ssize_t read(int fd, void* data, size_t size) {
  REAL(ssize_t, read, int, void*, size_t)
  ssize_t result = -1;
  if (!limited("read", fd, &size, &result)) {
    result = real(fd, data, size);
  }
  note_transfer("read", fd, data, result);
  return result;
}

ssize_t __read_chk(int fd, void* data, size_t size, size_t room) {
  if (size > room) {
    abort();
  }
  return read(fd, data, size);
}

size_t fwrite(const void* data, size_t size, size_t count, FILE* file) {
  REAL(size_t, fwrite, const void*, size_t, size_t, FILE*)
  CATCH("fwrite", fd_subject(fileno(file)), size_t)
  return real(data, size, count, file);
}

int select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, struct timeval* timeout) {
  REAL(int, select, int, fd_set*, fd_set*, fd_set*, struct timeval*)
  if (tracing() && traced("select")) {
    struct event event;
    int fd = 0;
    while (readable != NULL && fd < count && !FD_ISSET(fd, readable)) {
      fd++;
    }
    event_begin(&event, "select");
    event_field(&event, fd_subject(fd).text);
    event_fieldf(&event, "%g",
                 timeout != NULL ? (double)timeout->tv_sec + (double)timeout->tv_usec / 1e6 : -1.0);
    event_write(&event);
  }
  CATCH("select", path_subject(""), int)
  return real(count, readable, writable, exceptional, timeout);
}

/* ------------------------------------------------------------------ terminals */

int tcgetattr(int fd, struct termios* settings) {
  REAL(int, tcgetattr, int, struct termios*)
  CATCH("tcgetattr", fd_subject(fd), int)
  return real(fd, settings);
}

static void note_settings(int fd, int action, const struct termios* settings, int result) {
  int error = errno;
  struct event event;
  event_begin(&event, "tcsetattr");
  event_field(&event, fd_subject(fd).text);
  event_fieldf(&event, "%s", action == TCSANOW ? "now" : action == TCSADRAIN ? "drain" : "flush");
  event_fieldf(&event, "%o", settings->c_iflag);
  event_fieldf(&event, "%o", settings->c_oflag);
  event_fieldf(&event, "%o", settings->c_cflag);
  event_fieldf(&event, "%o", settings->c_lflag);
  event_field_hex(&event, settings->c_cc, sizeof settings->c_cc);
  event_result(&event, result);
  if (control != NULL) {
    event_write(&event);
  }
  errno = error;
}

int tcsetattr(int fd, int action, const struct termios* settings) {
  REAL(int, tcsetattr, int, int, const struct termios*)
  CATCH("tcsetattr", fd_subject(fd), int)
  int result = real(fd, action, settings);
  note_settings(fd, action, settings, result);
  return result;
}

int tcflush(int fd, int queue) {
  REAL(int, tcflush, int, int)
  CATCH("tcflush", fd_subject(fd), int)
  int result = real(fd, queue);
  int error = errno;
  struct event event;
  event_begin(&event, "tcflush");
  event_field(&event, fd_subject(fd).text);
  event_field(&event, queue == TCIFLUSH ? "input" : queue == TCOFLUSH ? "output" : "both");
  event_result(&event, result);
  if (control != NULL) {
    event_write(&event);
  }
  errno = error;
  return result;
}

/* ------------------------------------------------------------------ the rest only ever fails on request */

/* Where large files have a name of their own, a rule for the plain name catches both. */
#define CATCHABLE_AS(call, type, name, types, subject, parameters, arguments) \
  type name parameters {                                                      \
    static type(*real) types;                                                 \
    if (real == NULL) {                                                       \
      *(void**)&real = dlsym(RTLD_NEXT, #name);                               \
    }                                                                         \
    CATCH(call, subject, type)                                                \
    return real arguments;                                                    \
  }
#define CATCHABLE(type, name, types, subject, parameters, arguments) \
  CATCHABLE_AS(#name, type, name, types, subject, parameters, arguments)

/* A rule without an error lets the fork happen and sends the child a signal before it does anything else. */
pid_t fork(void) {
  REAL(pid_t, fork, void)
  const struct call_rule* rule = has_rule("fork") ? caught("fork", "", false) : NULL;
  if (rule == NULL) {
    return real();
  }
  note_caught("fork", "", rule);
  if (rule->error != 0) {
    return -1;
  }
  const pid_t child = real();
  if (child == 0) {
    raise((int)rule->result);
  }
  return child;
}

/* What the program's process waits for, and what a reader that it forked waits for, happen at the same time.
 */
static const char* waiting_process(void) {
  return getpid() == program ? "program" : "reader";
}

static void note_line(const char* line) {
  struct event event;
  event_begin(&event, "shell");
  event_field(&event, line);
  event_write(&event);
}

/* The environment with a mark for /bin/sh that its line is in the log already. */
static char* const* with_mark(char* const environment[]) {
  static char mark[] = SHELL_LINE_NOTED "=1";
  static char* marked[1024] = {mark};
  const size_t room = sizeof marked / sizeof marked[0] - 1;
  size_t count = 1;
  while (count < room && environment[count - 1] != NULL) {
    marked[count] = environment[count - 1];
    count++;
  }
  marked[count] = NULL;
  return marked;
}

/* Starts the shell for a command line, which is the third word; answers an error number, not -1. The line is
 * noted here: the program goes on at once, and a shell that comes late would stand behind what the program
 * did next. */
int posix_spawn(pid_t* child, const char* path, const posix_spawn_file_actions_t* actions,
                const posix_spawnattr_t* attributes, char* const words[], char* const environment[]) {
  REAL(int, posix_spawn, pid_t*, const char*, const posix_spawn_file_actions_t*, const posix_spawnattr_t*,
       char* const[], char* const[])
  const char* line = words[1] != NULL && words[2] != NULL ? words[2] : "";
  const struct call_rule* rule = has_rule("posix_spawn") ? caught("posix_spawn", line, false) : NULL;
  if (rule != NULL) {
    note_caught("posix_spawn", line, rule);
    return rule->error;
  }
  if (control == NULL) {
    return real(child, path, actions, attributes, words, environment);
  }
  note_line(line);
  return real(child, path, actions, attributes, words, with_mark(environment));
}

CATCHABLE(pid_t, waitpid, (pid_t, int*, int), path_subject(waiting_process()),
          (pid_t child, int* status, int options), (child, status, options))
CATCHABLE(int, pipe, (int*), path_subject(""), (int ends[2]), (ends))
CATCHABLE_AS("pipe", int, pipe2, (int*, int), path_subject(""), (int ends[2], int flags), (ends, flags))
CATCHABLE(off_t, lseek, (int, off_t, int), fd_subject(fd), (int fd, off_t offset, int whence),
          (fd, offset, whence))
CATCHABLE_AS("lseek", off64_t, lseek64, (int, off64_t, int), fd_subject(fd),
             (int fd, off64_t offset, int whence), (fd, offset, whence))
CATCHABLE(int, stat, (const char*, struct stat*), path_subject(path), (const char* path, struct stat* status),
          (path, status))
CATCHABLE_AS("stat", int, stat64, (const char*, struct stat64*), path_subject(path),
             (const char* path, struct stat64* status), (path, status))
CATCHABLE(int, fstat, (int, struct stat*), fd_subject(fd), (int fd, struct stat* status), (fd, status))
CATCHABLE_AS("fstat", int, fstat64, (int, struct stat64*), fd_subject(fd), (int fd, struct stat64* status),
             (fd, status))

/* The free space of whatever file system is that of the control page. */
#define STATFS(name)                                                   \
  int name(const char* path, struct name* status) {                    \
    REAL(int, name, const char*, struct name*)                         \
    CATCH("statfs", path_subject(path), int)                           \
    const int result = real(path, status);                             \
    if (result == 0 && control != NULL) {                              \
      status->f_bfree = (typeof(status->f_bfree))control->free_blocks; \
      status->f_bsize = (typeof(status->f_bsize))control->block_size;  \
    }                                                                  \
    return result;                                                     \
  }
STATFS(statfs)
STATFS(statfs64)

CATCHABLE(int, access, (const char*, int), path_subject(path), (const char* path, int mode), (path, mode))
CATCHABLE(int, unlink, (const char*), path_subject(path), (const char* path), (path))
CATCHABLE(int, lstat, (const char*, struct stat*), path_subject(path),
          (const char* path, struct stat* status), (path, status))
CATCHABLE_AS("lstat", int, lstat64, (const char*, struct stat64*), path_subject(path),
             (const char* path, struct stat64* status), (path, status))
CATCHABLE(int, dup2, (int, int), fd_subject(from), (int from, int to), (from, to))
CATCHABLE(int, poll, (struct pollfd*, nfds_t, int), path_subject(""),
          (struct pollfd * descriptors, nfds_t count, int milliseconds), (descriptors, count, milliseconds))
CATCHABLE(int, kill, (pid_t, int), number_subject((size_t)number), (pid_t process, int number),
          (process, number))

#define DEFINE_FCNTL(name)                         \
  int name(int fd, int request, ...) {             \
    REAL(int, name, int, int, ...)                 \
    va_list args;                                  \
    va_start(args, request);                       \
    void* argument = va_arg(args, void*);          \
    va_end(args);                                  \
    CATCH("fcntl", fd_subject(fd), int)            \
    return real(fd, request, argument);            \
  }
DEFINE_FCNTL(fcntl)
DEFINE_FCNTL(fcntl64)

/* The kernel closes the descriptor even when it answers with an error. */
int close(int fd) {
  REAL(int, close, int)
  const struct subject path = has_rule("close") ? fd_subject(fd) : (struct subject){""};
  const int result = real(fd);
  CATCH("close", path, int)
  return result;
}

FILE* fdopen(int fd, const char* mode) {
  REAL(FILE*, fdopen, int, const char*)
  CATCH_POINTER("fdopen", fd_subject(fd), false, NULL)
  return real(fd, mode);
}

char* fgets(char* text, int size, FILE* file) {
  REAL(char*, fgets, char*, int, FILE*)
  CATCH_POINTER("fgets", fd_subject(fileno(file)), false, NULL)
  return real(text, size, file);
}

char* __fgets_chk(char* text, size_t room, int size, FILE* file) {
  if (size < 0 || (size_t)size > room) {
    abort();
  }
  return fgets(text, size, file);
}

CATCHABLE(int, socket, (int, int, int), path_subject(""), (int domain, int type, int protocol),
          (domain, type, protocol))
CATCHABLE(int, sigaction, (int, const struct sigaction*, struct sigaction*), number_subject((size_t)number),
          (int number, const struct sigaction* act, struct sigaction* old), (number, act, old))

void* mmap(void* address, size_t length, int protection, int flags, int fd, off_t offset) {
  REAL(void*, mmap, void*, size_t, int, int, int, off_t)
  CATCH_POINTER("mmap", number_subject(length), true, MAP_FAILED)
  return real(address, length, protection, flags, fd, offset);
}

void* mmap64(void* address, size_t length, int protection, int flags, int fd, off64_t offset) {
  REAL(void*, mmap64, void*, size_t, int, int, int, off64_t)
  CATCH_POINTER("mmap", number_subject(length), true, MAP_FAILED)
  return real(address, length, protection, flags, fd, offset);
}

void* malloc(size_t size) {
  REAL(void*, malloc, size_t)
  CATCH_POINTER("malloc", number_subject(size), true, NULL)
  return real(size);
}

void* realloc(void* block, size_t size) {
  REAL(void*, realloc, void*, size_t)
  CATCH_POINTER("realloc", number_subject(size), true, NULL)
  return real(block, size);
}
