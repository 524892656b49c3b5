/* The device kernel's answers to MTD requests, on the files of a device root. */
#ifndef FLASH_REQUESTS_H
#define FLASH_REQUESTS_H

#include <stdint.h>

/* The partition requests that only the device's kernel has. */
#define MTD_CREATE 0x40044D17UL
#define MTD_DELETE 0x40044D18UL
#define MTD_MERGE 0x40044D1BUL

/* The device kernel's records: a partition to create, and the argument of the create request. */
struct new_partition {
  char name[32];
  uint64_t size;
  uint64_t offset;
  uint32_t mask_flags;
  uint32_t padding;
};

struct creation {
  struct new_partition* partitions;
  uint32_t count;
};

/* Answers an ioctl on /dev/mtd<number> as the system call does: its result, or -1 and errno.
 * MEMGETINFO and MEMGETBADBLOCK (mtd/mtd-user.h) tell of /proc/mtd and /.harness/bad_blocks; the partition
 * requests change /proc/mtd and make the nodes of new partitions. */
int flash_request(int number, unsigned long request, void* argument);

#endif
