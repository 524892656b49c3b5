/* The one ordered log of a device root: every tool run, kernel request and sleep is a line of it.
 *
 * A line holds tab-separated fields: monotonic time in microseconds, process id, kind, then the fields of the
 * kind (tests/README.md lists them). Backslash, control characters and bytes above 126 are written as \xNN. A
 * line is appended with one write, so lines of different processes never mix and their order is the order of
 * events. Raw system calls only: the stand-in replaces the C functions of the same names. */
#ifndef EVENT_LOG_H
#define EVENT_LOG_H

#include "skeleton.h"

#include <fcntl.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

/* In the environment of a shell whose command line was noted by who started it. */
#define SHELL_LINE_NOTED "SHELL_LINE_NOTED"

#define EVENT_SMALL 256 /* data up to this size are logged in full, larger ones by size and checksum */

struct event {
  size_t length;
  char text[12288];
};

static inline void event_put(struct event* event, const void* data, size_t size) {
  static const char digits[] = "0123456789abcdef";
  const unsigned char* bytes = data;
  for (size_t i = 0; i < size && event->length + 8 < sizeof event->text; i++) {
    unsigned char c = bytes[i];
    if (c >= 0x20 && c <= 0x7e && c != '\\') {
      event->text[event->length++] = (char)c;
    } else {
      event->text[event->length++] = '\\';
      event->text[event->length++] = 'x';
      event->text[event->length++] = digits[c >> 4];
      event->text[event->length++] = digits[c & 15];
    }
  }
}

static inline void event_field_bytes(struct event* event, const void* data, size_t size) {
  event->text[event->length++] = '\t';
  event_put(event, data, size);
}

static inline void event_field(struct event* event, const char* text) {
  event_field_bytes(event, text, strlen(text));
}

static inline void __attribute__((format(printf, 2, 3)))
event_fieldf(struct event* event, const char* format, ...) {
  char text[512];
  va_list args;
  va_start(args, format);
  vsnprintf(text, sizeof text, format, args);
  va_end(args);
  event_field(event, text);
}

static inline void event_field_hex(struct event* event, const void* data, size_t size) {
  const unsigned char* bytes = data;
  char pair[3];
  event_field(event, "");
  for (size_t i = 0; i < size; i++) {
    snprintf(pair, sizeof pair, "%02x", bytes[i]);
    event_put(event, pair, 2);
  }
}

static inline void event_begin(struct event* event, const char* kind) {
  struct timespec now;
  syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &now);
  long long microseconds = (long long)now.tv_sec * 1000000 + now.tv_nsec / 1000;
  event->length =
      (size_t)snprintf(event->text, sizeof event->text, "%lld\t%ld", microseconds, syscall(SYS_getpid));
  event_field(event, kind);
}

static inline void event_write(struct event* event) {
  event->text[event->length++] = '\n';
  long fd = syscall(SYS_openat, AT_FDCWD, EVENT_LOG_FILE, O_WRONLY | O_APPEND | O_CLOEXEC, 0);
  if (fd >= 0) {
    if (syscall(SYS_lseek, fd, 0, SEEK_END) < EVENT_LOG_LIMIT) {
      syscall(SYS_write, fd, event->text, event->length);
    }
    syscall(SYS_close, fd);
  }
}

/* The CRC-32 of zlib and Ethernet; start with 0 and hand the result back in for the next piece. */
static inline uint32_t event_crc32(uint32_t crc, const void* data, size_t size) {
  const unsigned char* bytes = data;
  static uint32_t table[256];
  if (table[1] == 0) {
    for (uint32_t i = 0; i < 256; i++) {
      uint32_t value = i;
      for (int bit = 0; bit < 8; bit++) {
        value = (value >> 1) ^ ((value & 1) ? 0xEDB88320U : 0U);
      }
      table[i] = value;
    }
  }
  crc = ~crc;
  for (size_t i = 0; i < size; i++) {
    crc = table[(crc ^ bytes[i]) & 0xff] ^ (crc >> 8);
  }
  return ~crc;
}

#endif
