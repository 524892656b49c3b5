/* The page through which a test steers the kernel stand-in while the program runs.
 * Both sides map the file CONTROL_FILE of the device root; the stand-in counts in it, so counters are shared
 * by every process of the device. device_root.py mirrors this layout. */
#ifndef CONTROL_H
#define CONTROL_H

#include <stdint.h>

#define CONTROL_RULES 32
#define CONTROL_TRACES 8

/* One chosen call: what it matches, and what happens instead of it. */
struct call_rule {
  char call[16];        /* "" = free slot; else the name of the C function, "ioctl" included */
  char match[160];      /* "" = every call; else a part of the call's subject, behind "=" all of it */
  int64_t skip;         /* so many matching calls pass untouched first */
  int64_t times;        /* then so many are caught; negative = all */
  int64_t fired;        /* how many were caught */
  int64_t result;       /* what the call returns; read and write with error 0: the most bytes it moves */
  int32_t error;        /* errno to set, 0 = none */
  uint32_t data_length; /* ioctl: so many bytes are stored through the argument */
  uint8_t data[256];
};

struct control {
  double sleep_scale; /* real seconds per second asked of sleep, usleep, nanosleep */
  char trace[CONTROL_TRACES]
            [64]; /* path prefixes whose open, write and read are logged; "select" logs selects */
  struct call_rule rules[CONTROL_RULES];
  uint64_t free_blocks; /* what statfs tells of every file system, whatever the host has */
  int64_t block_size;
  uint64_t tally; /* not 0: every call that a rule could catch is logged */
};

#endif
