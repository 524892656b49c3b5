/* Makes a device root, and runs a program inside one:
 *
 *     enter_root make DIR
 *     enter_root run DIR [-b SOURCE:PATH]... [-t TERMINAL] -- PROGRAM [ARGUMENT]...
 *
 * `run` gives the program its own mount, process and network namespaces (and a user namespace where the
 * caller may not make them otherwise), binds SOURCE at PATH of the root for each -b, enters the root and
 * starts the program as leader of a session without a terminal, as the device's init does. It ends with the
 * program's exit status, or 128 plus the number of the signal that killed it. When enter_root is killed, or
 * its parent dies, every process of the namespace dies with it, and its mounts vanish. */
#define _GNU_SOURCE
#include "skeleton.h"

#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

static const char* root;
static const char* terminal;
static bool untidy;
#define MAX_BINDS 64
static char* binds[MAX_BINDS]; /* SOURCE:PATH */
static int bind_count;
static pid_t init_pid;

static void die(const char* what, const char* which) {
  fprintf(stderr, "enter_root: %s %s: %s\n", what, which, strerror(errno));
  exit(125);
}

static void write_text(const char* path, const char* text) {
  int fd = open(path, O_WRONLY | O_CLOEXEC);
  if (fd < 0 || write(fd, text, strlen(text)) < 0) {
    die("write", path);
  }
  close(fd);
}

/* A user without privileges becomes root of a user namespace, which lets him have the other ones. */
static void new_namespaces(void) {
  int wanted = CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWNET;
  uid_t uid = geteuid();
  gid_t gid = getegid();
  if (unshare(wanted) == 0) {
    return;
  }
  if (unshare(wanted | CLONE_NEWUSER) != 0) {
    die("unshare", "(namespaces for root, or user namespaces for everybody, must be allowed)");
  }
  char map[64];
  write_text("/proc/self/setgroups", "deny");
  snprintf(map, sizeof map, "0 %u 1", (unsigned)uid);
  write_text("/proc/self/uid_map", map);
  snprintf(map, sizeof map, "0 %u 1", (unsigned)gid);
  write_text("/proc/self/gid_map", map);
}

static void make_mount_point(const char* source, const char* target) {
  struct stat status;
  if (stat(source, &status) != 0) {
    die("stat", source);
  }
  if (S_ISDIR(status.st_mode)) {
    mkdir(target, 0755);
  } else {
    int fd = open(target, O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    if (fd >= 0) {
      close(fd);
    }
  }
}

static void bind_at(const char* source, const char* path) {
  char target[4096];
  snprintf(target, sizeof target, "%s%s", root, path);
  make_mount_point(source, target);
  if (mount(source, target, NULL, MS_BIND | MS_REC, NULL) != 0) {
    die("bind", target);
  }
}

/* Flags that a user namespace must not take away from a mount are kept. */
static void bind_read_only(const char* source, const char* path) {
  char target[4096];
  struct statvfs status;
  bind_at(source, path);
  snprintf(target, sizeof target, "%s%s", root, path);
  unsigned long flags = MS_BIND | MS_REMOUNT | MS_RDONLY;
  if (statvfs(target, &status) == 0) {
    flags |= status.f_flag & (ST_NOSUID | ST_NODEV | ST_NOEXEC | ST_NOATIME | ST_NODIRATIME | ST_RELATIME);
  }
  if (mount(NULL, target, NULL, flags, NULL) != 0) {
    die("remount read-only", target);
  }
}

static void bind_host_parts(void) {
  static const char* const nodes[] = {"/dev/null", "/dev/zero", "/dev/full", "/dev/urandom"};
  char own[4096];
  ssize_t length = readlink("/proc/self/exe", own, sizeof own - 1);
  if (length < 0) {
    die("readlink", "/proc/self/exe");
  }
  own[length] = '\0';
  *strrchr(own, '/') = '\0';
  for (size_t i = 0; i < sizeof nodes / sizeof nodes[0]; i++) {
    bind_at(nodes[i], nodes[i]);
  }
  bind_at("/proc", "/.harness/proc");
  bind_read_only(own, "/.harness/bin");
  bind_read_only("/usr/lib", "/usr/lib");
  if (access("/usr/lib64", F_OK) == 0) {
    bind_read_only("/usr/lib64", "/lib64");
  }
  bind_read_only("/usr/bin/bash", "/.harness/bash");
  bind_read_only("/usr/bin/busybox", "/.harness/busybox");
}

static void mount_terminals(void) {
  char target[4096];
  snprintf(target, sizeof target, "%s/dev/pts", root);
  mkdir(target, 0755);
  if (mount("devpts", target, "devpts", MS_NOSUID | MS_NOEXEC, "newinstance,ptmxmode=0666") != 0) {
    die("mount", target);
  }
}

static void enter(void) {
  if (mount(NULL, "/", NULL, MS_REC | MS_PRIVATE, NULL) != 0) {
    die("make private", "/");
  }
  bind_host_parts();
  mount_terminals();
  for (int i = 0; i < bind_count; i++) {
    char* path = strchr(binds[i], ':');
    if (path == NULL) {
      errno = EINVAL;
      die("-b", binds[i]);
    }
    *path = '\0';
    bind_at(binds[i], path + 1);
  }
  if (chroot(root) != 0 || chdir("/") != 0) {
    die("chroot", root);
  }
}

static void open_terminal(void) {
  int fd = open(terminal, O_RDWR | O_NOCTTY);
  if (fd < 0) {
    die("open", terminal);
  }
  for (int standard = 0; standard <= 2; standard++) {
    dup2(fd, standard);
  }
  if (fd > 2) {
    close(fd);
  }
}

/* What a parent may leave to its child: signals ignored and blocked, descriptors that do not wait. */
static void leave_untidy(void) {
  const int ignored[] = {SIGCHLD, SIGPIPE, SIGTERM, SIGALRM};
  for (size_t i = 0; i < sizeof ignored / sizeof ignored[0]; i++) {
    signal(ignored[i], SIG_IGN);
  }
  sigset_t all;
  sigfillset(&all);
  sigprocmask(SIG_SETMASK, &all, NULL);
  for (int standard = 0; standard <= 2; standard++) {
    fcntl(standard, F_SETFL, fcntl(standard, F_GETFL) | O_NONBLOCK);
  }
}

static void start(char* argv[]) {
  for (int signal_number = 1; signal_number < NSIG; signal_number++) {
    signal(signal_number, SIG_DFL);
  }
  umask(022);
  setsid();
  if (terminal != NULL) {
    open_terminal();
  }
  if (untidy) {
    leave_untidy();
  }
  execv(argv[0], argv);
  die("exec", argv[0]);
}

/* Process 1 of the namespace: prepares the root, starts the program, buries orphans. */
static void run_init(char* argv[]) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  enter();
  pid_t program = fork();
  if (program < 0) {
    die("fork", argv[0]);
  }
  if (program == 0) {
    start(argv);
  }
  int status = 0;
  pid_t ended;
  while ((ended = wait(&status)) != program) {
    if (ended < 0 && errno != EINTR) {
      die("wait", argv[0]);
    }
  }
  exit(WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status));
}

static void kill_init(int signal_number) {
  (void)signal_number;
  kill(init_pid, SIGKILL);
}

static int run(char* argv[]) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  new_namespaces();
  init_pid = fork();
  if (init_pid < 0) {
    die("fork", "init");
  }
  if (init_pid == 0) {
    run_init(argv);
  }
  signal(SIGTERM, kill_init);
  signal(SIGINT, kill_init);
  int status = 0;
  while (waitpid(init_pid, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

static int usage(void) {
  fprintf(
      stderr,
      "usage: enter_root make DIR | run DIR [-u] [-b SOURCE:PATH]... [-t TERMINAL] -- PROGRAM [ARGUMENT]...\n");
  return 125;
}

int main(int argc, char* argv[]) {
  if (argc < 3) {
    return usage();
  }
  root = argv[2];
  if (strcmp(argv[1], "make") == 0) {
    if (mkdir(root, 0755) != 0 && errno != EEXIST) {
      die("mkdir", root);
    }
    skeleton_make(root);
    return 0;
  }
  optind = 3;
  for (int letter; (letter = getopt(argc, argv, "+ub:t:")) != -1;) {
    if (letter == 'u') {
      untidy = true;
    } else if (letter == 'b' && bind_count < MAX_BINDS) {
      binds[bind_count++] = optarg;
    } else if (letter == 't') {
      terminal = optarg;
    } else {
      return usage();
    }
  }
  return strcmp(argv[1], "run") == 0 && optind < argc ? run(argv + optind) : usage();
}
