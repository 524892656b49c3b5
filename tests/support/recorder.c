/* The one tool behind every tool name of a device root: notes how it was called, and answers as the test
 * says.
 *
 * As /bin/sh it notes the composed command line, unless the stand-in has done so, and hands over to a real
 * shell. That shell is bash: it knows "&>" and, unlike busybox's, runs what the search path finds for a bare
 * name, so tar, tftp or rm are recorded, too. As any other tool it notes its arguments, reads its standard
 * input when that is a pipe, and then follows the test's answer, or without one does what the real tool does
 * to the files of the root (own_act), or nothing. */
#define _GNU_SOURCE
#include "ethernet.h"
#include "event_log.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

static struct event event;
static int arg_count;
static char** args;
static const char* tool; /* the name without its directory */

/* ------------------------------------------------------------------ the answer of the test */

/* One file of key=value lines per rule, beside it NAME.out and NAME.err with what to print; the first by name
 * whose `when` is part of the command line answers. Device side of DeviceRoot.answer(), where the keys are
 * explained. */
struct answer {
  char file[512]; /* without its ending; "" = there is none */
  char when[512];
  long times; /* 0 = always */
  long after; /* so many runs do not get it first */
  int status;
  int signal_number;
  long delay_ms;
  long hold_ms;
  long reads; /* bytes of standard input to take, -1 = all of a pipe */
  long piece;
  long pause_ms;
  bool acts;
};

static void sleep_ms(long milliseconds) {
  struct timespec time = {milliseconds / 1000, milliseconds % 1000 * 1000000};
  while (milliseconds > 0 && nanosleep(&time, &time) != 0 && errno == EINTR) {
  }
}

static void parse_answer_line(struct answer* answer, char* line) {
  char* value = strchr(line, '=');
  if (value == NULL) {
    return;
  }
  *value++ = '\0';
  value[strcspn(value, "\n")] = '\0';
  const struct {
    const char* key;
    long* number;
  } numbers[] = {
      {"times", &answer->times}, {"after", &answer->after}, {"delay", &answer->delay_ms}, {"hold", &answer->hold_ms},
      {"reads", &answer->reads}, {"piece", &answer->piece},    {"pause", &answer->pause_ms},
  };
  for (size_t i = 0; i < sizeof numbers / sizeof numbers[0]; i++) {
    if (strcmp(line, numbers[i].key) == 0) {
      *numbers[i].number = atol(value);
    }
  }
  if (strcmp(line, "when") == 0) {
    snprintf(answer->when, sizeof answer->when, "%s", value);
  } else if (strcmp(line, "status") == 0) {
    answer->status = atoi(value);
  } else if (strcmp(line, "signal") == 0) {
    answer->signal_number = atoi(value);
  } else if (strcmp(line, "acts") == 0) {
    answer->acts = atoi(value) != 0;
  }
}

static bool load_answer(struct answer* answer, const char* directory, const char* name) {
  char path[sizeof answer->file];
  char line[1024];
  *answer = (struct answer){.reads = -1};
  snprintf(path, sizeof path, "%s/%s", directory, name);
  FILE* file = fopen(path, "r");
  if (file == NULL) {
    return false;
  }
  while (fgets(line, sizeof line, file) != NULL) {
    parse_answer_line(answer, line);
  }
  fclose(file);
  *strrchr(path, '.') = '\0';
  snprintf(answer->file, sizeof answer->file, "%s", path);
  return true;
}

static bool matches(const struct answer* answer) {
  static char line[65536];
  size_t used = 0;
  for (int i = 0; i < arg_count && used + 1 < sizeof line; i++) {
    used += (size_t)snprintf(line + used, sizeof line - used, i == 0 ? "%s" : " %s", args[i]);
  }
  return strstr(line, answer->when) != NULL;
}

static int is_rule(const struct dirent* entry) {
  const char* ending = strrchr(entry->d_name, '.');
  return ending != NULL && strcmp(ending, ".rule") == 0;
}

/* An answer for a number of times ends after the last of them; the lock keeps two tools from taking the same
 * one. */
static void count_answer(const struct answer* answer) {
  char path[1024];
  char used[1024];
  snprintf(path, sizeof path, "%s.rule", answer->file);
  snprintf(used, sizeof used, "%s.used", answer->file);
  if (answer->times == 1) {
    rename(path, used);
  } else if (answer->times > 1) {
    FILE* file = fopen(path, "a");
    if (file != NULL) {
      fprintf(file, "times=%ld\n", answer->times - 1);
      fclose(file);
    }
  }
  event_begin(&event, "answer");
  event_field(&event, strrchr(answer->file, '/') + 1);
  event_field(&event, tool);
  event_write(&event);
}

/* A run before the answer's first: counted down, under the same lock. */
static bool is_too_early(const struct answer* answer) {
  char path[1024];
  if (answer->after == 0) {
    return false;
  }
  snprintf(path, sizeof path, "%s.rule", answer->file);
  FILE* file = fopen(path, "a");
  if (file != NULL) {
    fprintf(file, "after=%ld\n", answer->after - 1);
    fclose(file);
  }
  return true;
}

static struct answer find_answer(void) {
  struct answer found = {.reads = -1};
  char directory[300];
  snprintf(directory, sizeof directory, ANSWERS_DIRECTORY "/%s", tool);
  int lock = open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (lock < 0) {
    return found;
  }
  flock(lock, LOCK_EX);
  struct dirent** names = NULL;
  int count = scandir(directory, &names, is_rule, alphasort);
  for (int i = 0; i < count; i++) {
    struct answer answer;
    if (found.file[0] == '\0' && load_answer(&answer, directory, names[i]->d_name) && matches(&answer) &&
        !is_too_early(&answer)) {
      found = answer;
      count_answer(&found);
    }
    free(names[i]);
  }
  free(names);
  close(lock);
  return found;
}

/* A held answer waits at its begin or at its end until the test has removed the file of that name beside it. */
static void wait_for_release(const struct answer* answer, const char* where) {
  char path[1024];
  snprintf(path, sizeof path, "%s.%s", answer->file, where);
  while (answer->file[0] != '\0' && access(path, F_OK) == 0) {
    sleep_ms(5);
  }
}

/* ------------------------------------------------------------------ input and output */

static bool input_is_pipe(void) {
  struct stat status;
  return fstat(0, &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode));
}

/* Standard input is taken only from a pipe: a tool run by the shell inherits the console, whose bytes are not
 * its. */
static void read_input(long most) {
  static char buffer[65536];
  char first[EVENT_SMALL];
  uint64_t size = 0;
  uint32_t crc = 0;
  if (!input_is_pipe()) {
    return;
  }
  while (most < 0 || size < (uint64_t)most) {
    size_t want = sizeof buffer;
    if (most >= 0 && (uint64_t)most - size < want) {
      want = (size_t)((uint64_t)most - size);
    }
    ssize_t got = read(0, buffer, want);
    if (got <= 0) {
      break;
    }
    if (size + (uint64_t)got <= sizeof first) {
      memcpy(first + size, buffer, (size_t)got);
    }
    crc = event_crc32(crc, buffer, (size_t)got);
    size += (uint64_t)got;
  }
  event_begin(&event, "input");
  event_field(&event, tool);
  event_fieldf(&event, "%llu", (unsigned long long)size);
  event_fieldf(&event, "%08x", crc);
  event_field_bytes(&event, first, size <= sizeof first ? (size_t)size : 0);
  event_write(&event);
}

static void print_file(const struct answer* answer, const char* ending, int out) {
  static char buffer[65536];
  char path[1024];
  snprintf(path, sizeof path, "%s.%s", answer->file, ending);
  int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    return;
  }
  size_t piece =
      answer->piece > 0 && answer->piece < (long)sizeof buffer ? (size_t)answer->piece : sizeof buffer;
  ssize_t got;
  while ((got = read(fd, buffer, piece)) > 0) {
    for (ssize_t done = 0; done < got;) {
      ssize_t wrote = write(out, buffer + done, (size_t)(got - done));
      if (wrote < 0) {
        close(fd);
        return;
      }
      done += wrote;
    }
    sleep_ms(answer->pause_ms);
  }
  close(fd);
}

/* ------------------------------------------------------------------ what the tools do by themselves */

/* Option letters and words are skipped: `number` counts the words that begin with no dash, from 0. */
static const char* operand(int number) {
  for (int i = 1; i < arg_count; i++) {
    if (args[i][0] != '-' && number-- == 0) {
      return args[i];
    }
  }
  return "";
}

static const char* option(const char* letter) {
  for (int i = 1; i + 1 < arg_count; i++) {
    if (strcmp(args[i], letter) == 0) {
      return args[i + 1];
    }
  }
  return "";
}

static int fail(const char* path) {
  fprintf(stderr, "%s: %s: %s\n", tool, path, strerror(errno));
  return 1;
}

/* Copies up to `size` bytes; the target, a device node, keeps its length when `keep` is set. */
static int copy(const char* from, const char* to, long long size, bool keep) {
  static char buffer[65536];
  int in = open(from, O_RDONLY | O_CLOEXEC);
  if (in < 0) {
    return fail(from);
  }
  int out = open(to, keep ? O_WRONLY | O_CLOEXEC : O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (out < 0) {
    close(in);
    return fail(to);
  }
  int result = 0;
  while (size > 0 && result == 0) {
    ssize_t got = read(in, buffer, size < (long long)sizeof buffer ? (size_t)size : sizeof buffer);
    if (got <= 0) {
      break;
    }
    if (write(out, buffer, (size_t)got) != got) {
      result = fail(to);
    }
    size -= got;
  }
  close(in);
  close(out);
  return result;
}

static int act_flash_erase(void) {
  static char ones[65536];
  struct stat status;
  const char* node = operand(0);
  int fd = open(node, O_WRONLY | O_CLOEXEC);
  if (fd < 0 || fstat(fd, &status) != 0) {
    return fail(node);
  }
  memset(ones, 0xff, sizeof ones);
  for (off_t done = 0; S_ISREG(status.st_mode) && done < status.st_size;) {
    off_t left = status.st_size - done;
    ssize_t wrote = write(fd, ones, left < (off_t)sizeof ones ? (size_t)left : sizeof ones);
    if (wrote <= 0) {
      return fail(node);
    }
    done += wrote;
  }
  close(fd);
  return 0;
}

static int act_flashcp(void) {
  return copy(operand(0), operand(1), INT64_MAX, true);
}

static int act_nandwrite(void) {
  return copy(operand(1), operand(0), INT64_MAX, true);
}

/* mtd_debug read NODE OFFSET LENGTH FILE; only whole partitions are read, so the offset is 0. */
static int act_mtd_debug(void) {
  return copy(operand(1), operand(4), atoll(operand(3)), false);
}

static int act_nanddump(void) {
  return copy(args[arg_count - 1], option("-f"), atoll(option("-l")), false);
}

/* Without a name it lists everything. */
static int act_fw_printenv(void) {
  char line[65536];
  const char* name = args[arg_count - 1];
  FILE* file = fopen(ENV_FILE, "r");
  if (arg_count == 1) {
    while (file != NULL && fgets(line, sizeof line, file) != NULL) {
      fputs(line, stdout);
    }
    return 0;
  }
  while (file != NULL && fgets(line, sizeof line, file) != NULL) {
    size_t length = strlen(name);
    if (strncmp(line, name, length) == 0 && line[length] == '=') {
      fputs(strcmp(args[1], "-n") == 0 ? line + length + 1 : line, stdout);
      return 0;
    }
  }
  fprintf(stderr, "## Error: \"%s\" not defined\n", name);
  return 1;
}

/* The device's tool joins its words by blanks; no word at all deletes the variable. */
static int act_fw_setenv(void) {
  char line[65536];
  const char* name = arg_count > 1 ? args[1] : "";
  FILE* old = fopen(ENV_FILE, "r");
  FILE* fresh = fopen(ENV_FILE ".new", "w");
  if (fresh == NULL) {
    return fail(ENV_FILE);
  }
  while (old != NULL && fgets(line, sizeof line, old) != NULL) {
    if (strncmp(line, name, strlen(name)) != 0 || line[strlen(name)] != '=') {
      fputs(line, fresh);
    }
  }
  if (arg_count > 2) {
    fprintf(fresh, "%s=", name);
    for (int i = 2; i < arg_count; i++) {
      fprintf(fresh, i == 2 ? "%s" : " %s", args[i]);
    }
    fputc('\n', fresh);
  }
  fclose(fresh);
  return rename(ENV_FILE ".new", ENV_FILE) == 0 ? 0 : fail(ENV_FILE);
}

static int act_ifconfig(void) {
  return ethernet_ifconfig(arg_count, args);
}

/* Tools whose effect on files the program relies on are busybox's. */
static int act_busybox(void) {
  char* words[256] = {(char*)"busybox", (char*)tool};
  for (int i = 1; i < arg_count && i + 2 < 256; i++) {
    words[i + 1] = args[i];
  }
  pid_t child = fork();
  if (child == 0) {
    execv("/.harness/busybox", words);
    _exit(127);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

static const struct {
  const char* name;
  int (*act)(void);
  bool takes_input; /* the tool itself reads the pipe on its standard input */
} own_acts[] = {
    {"awk", act_busybox, true},          {"chmod", act_busybox, false},
    {"cp", act_busybox, false},          {"flash_erase", act_flash_erase, false},
    {"flashcp", act_flashcp, false},     {"fw_printenv", act_fw_printenv, false},
    {"fw_setenv", act_fw_setenv, false}, {"grep", act_busybox, true},
    {"ifconfig", act_ifconfig, false},   {"mkdir", act_busybox, false},
    {"mtd_debug", act_mtd_debug, false}, {"mv", act_busybox, false},
    {"nanddump", act_nanddump, false},   {"nandwrite", act_nandwrite, false},
    {"rm", act_busybox, false},
};

/* ------------------------------------------------------------------ the two ways to be run */

static void note_run(void) {
  struct sigaction interrupt;
  sigaction(SIGINT, NULL, &interrupt);
  event_begin(&event, "run");
  event_field(&event, interrupt.sa_handler == SIG_IGN ? "ignored" : "default");
  for (int i = 0; i < arg_count; i++) {
    event_field(&event, args[i]);
  }
  event_write(&event);
}

static void note_exit(const char* how, int number) {
  event_begin(&event, "exit");
  event_field(&event, tool);
  event_fieldf(&event, "%s%d", how, number);
  event_write(&event);
}

static int run_tool(void) {
  int status = 0;
  note_run();
  struct answer answer = find_answer();
  bool answered = answer.file[0] != '\0';
  size_t own = 0;
  while (own < sizeof own_acts / sizeof own_acts[0] && strcmp(own_acts[own].name, tool) != 0) {
    own++;
  }
  bool acts = own < sizeof own_acts / sizeof own_acts[0] && (!answered || answer.acts);
  sleep_ms(answer.delay_ms);
  wait_for_release(&answer, "begin");
  if (!acts || !own_acts[own].takes_input) {
    read_input(answer.reads);
  }
  if (acts) {
    status = own_acts[own].act();
    fflush(NULL);
  }
  if (answered) {
    print_file(&answer, "err", 2);
    print_file(&answer, "out", 1);
    sleep_ms(answer.hold_ms);
    wait_for_release(&answer, "end");
    status = answer.status;
  }
  if (answer.signal_number != 0) {
    note_exit("signal ", answer.signal_number);
    signal(answer.signal_number, SIG_DFL);
    raise(answer.signal_number);
  }
  note_exit("", status);
  return status;
}

static int run_shell(void) {
  int i = 1;
  while (i < arg_count && (strcmp(args[i], "-c") == 0 || strcmp(args[i], "--") == 0)) {
    i++;
  }
  if (getenv(SHELL_LINE_NOTED) == NULL) {
    event_begin(&event, "shell");
    event_field(&event, i < arg_count ? args[i] : "");
    event_write(&event);
  }
  unsetenv(SHELL_LINE_NOTED);
  unsetenv("LD_PRELOAD"); /* the stand-in is for the program, not for its shell */
  execv("/.harness/bash", args);
  return 127;
}

int main(int argc, char* argv[]) {
  arg_count = argc;
  args = argv;
  tool = strrchr(argv[0], '/') != NULL ? strrchr(argv[0], '/') + 1 : argv[0];
  return strcmp(tool, "sh") == 0 ? run_shell() : run_tool();
}
