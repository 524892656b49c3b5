/* The device kernel's answers to MTD requests, as flash_requests.h says. */
#define _GNU_SOURCE
#include "flash_requests.h"

#include "skeleton.h"

#include <errno.h>
#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <stdbool.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#define PARTITIONS 64

struct partition {
  int number;
  unsigned long long size;
  unsigned erase_size;
  char name[64];
};

/* By system call: a test may have made the C library's own functions fail. */
static FILE* open_text(const char* path, int flags, const char* mode) {
  long fd = syscall(SYS_openat, AT_FDCWD, path, flags | O_CLOEXEC, 0644);
  return fd < 0 ? NULL : fdopen((int)fd, mode);
}

static int load_partitions(struct partition* list) {
  char line[256];
  int count = 0;
  FILE* file = open_text("/proc/mtd", O_RDONLY, "r");
  while (file != NULL && count < PARTITIONS && fgets(line, sizeof line, file) != NULL) {
    struct partition* p = &list[count];
    *p = (struct partition){0};
    if (sscanf(line, "mtd%d: %llx %x \"%63[^\"]\"", &p->number, &p->size, &p->erase_size, p->name) == 4) {
      count++;
    }
  }
  if (file != NULL) {
    fclose(file);
  }
  return count;
}

static void store_partitions(const struct partition* list, int count) {
  FILE* file = open_text("/proc/mtd", O_WRONLY | O_TRUNC, "w");
  if (file == NULL) {
    return;
  }
  fputs("dev:    size   erasesize  name\n", file);
  for (int number = 0; number < PARTITIONS; number++) {
    for (int i = 0; i < count; i++) {
      if (list[i].number == number) {
        fprintf(file, "mtd%d: %08llx %08x \"%s\"\n", number, list[i].size, list[i].erase_size, list[i].name);
      }
    }
  }
  fclose(file);
}

static struct partition* find_partition(struct partition* list, int count, int number) {
  for (int i = 0; i < count; i++) {
    if (list[i].number == number) {
      return &list[i];
    }
  }
  return NULL;
}

/* A new partition takes the lowest free number, and a node of its size. */
static bool add_partition(struct partition* list, int* count, const char* name, uint64_t size,
                          unsigned erase_size) {
  char node[32];
  int number = 0;
  while (find_partition(list, *count, number) != NULL) {
    number++;
  }
  if (*count == PARTITIONS) {
    return false;
  }
  struct partition* added = &list[(*count)++];
  *added = (struct partition){.number = number, .size = size, .erase_size = erase_size};
  snprintf(added->name, sizeof added->name, "%.31s", name);
  snprintf(node, sizeof node, "/dev/mtd%d", number);
  long fd = syscall(SYS_openat, AT_FDCWD, node, O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  syscall(SYS_ftruncate, fd, size);
  syscall(SYS_close, fd);
  return true;
}

static bool remove_partition(struct partition* list, int* count, int number) {
  struct partition* gone = find_partition(list, *count, number);
  if (gone == NULL) {
    return false;
  }
  *gone = list[--*count];
  return true;
}

static int refuse(int error) {
  errno = error;
  return -1;
}

static int create_partitions(int parent_number, const struct creation* creation) {
  struct partition list[PARTITIONS];
  int count = load_partitions(list);
  struct partition* parent = find_partition(list, count, parent_number);
  if (parent == NULL) {
    return refuse(ENODEV);
  }
  struct partition whole = *parent;
  for (uint32_t i = 0; i < creation->count; i++) {
    const struct new_partition* wanted = &creation->partitions[i];
    if (wanted->size == 0 || wanted->offset > whole.size || wanted->size > whole.size - wanted->offset) {
      return refuse(EINVAL);
    }
    if (!add_partition(list, &count, wanted->name, wanted->size, whole.erase_size)) {
      return refuse(ENOSPC);
    }
  }
  store_partitions(list, count);
  return 0;
}

static int delete_partition(int number) {
  struct partition list[PARTITIONS];
  int count = load_partitions(list);
  if (!remove_partition(list, &count, number)) {
    return refuse(ENODEV);
  }
  store_partitions(list, count);
  return 0;
}

static int merge_partitions(int first, int second) {
  struct partition list[PARTITIONS];
  int count = load_partitions(list);
  struct partition* a = find_partition(list, count, first);
  struct partition* b = find_partition(list, count, second);
  if (a == NULL || b == NULL || a == b) {
    return refuse(EINVAL);
  }
  struct partition kept = *a;
  uint64_t size = a->size + b->size;
  add_partition(list, &count, kept.name, size, kept.erase_size);
  remove_partition(list, &count, first);
  remove_partition(list, &count, second);
  store_partitions(list, count);
  return 0;
}

static int describe_partition(int number, struct mtd_info_user* info) {
  struct partition list[PARTITIONS];
  const struct partition* p = find_partition(list, load_partitions(list), number);
  if (p == NULL) {
    return refuse(ENODEV);
  }
  bool nand = strcmp(p->name, "ubi0") == 0 || strcmp(p->name, "user") == 0;
  *info = (struct mtd_info_user){0};
  info->type = nand ? MTD_NANDFLASH : MTD_NORFLASH;
  info->flags = nand ? MTD_CAP_NANDFLASH : MTD_CAP_NORFLASH;
  info->size = (uint32_t)p->size;
  info->erasesize = p->erase_size;
  info->writesize = nand ? 2048 : 1;
  info->oobsize = nand ? 64 : 0;
  return 0;
}

/* BAD_BLOCKS_FILE holds a line "NUMBER OFFSET" per bad block. */
static int is_bad_block(int number, long long offset) {
  int bad_number;
  long long bad_offset;
  int found = 0;
  FILE* file = open_text(BAD_BLOCKS_FILE, O_RDONLY, "r");
  while (file != NULL && fscanf(file, "%d %lld", &bad_number, &bad_offset) == 2) {
    found |= bad_number == number && bad_offset == offset;
  }
  if (file != NULL) {
    fclose(file);
  }
  return found;
}

int flash_request(int number, unsigned long request, void* argument) {
  switch (request) {
    case MEMGETINFO:
      return describe_partition(number, argument);
    case MEMGETBADBLOCK:
      return is_bad_block(number, *(long long*)argument);
    case MTD_CREATE:
      return create_partitions(number, argument);
    case MTD_DELETE:
      return delete_partition(*(int32_t*)argument);
    case MTD_MERGE:
      return merge_partitions(((uint8_t*)argument)[0], ((uint8_t*)argument)[1]);
    default:
      return refuse(ENOTTY);
  }
}
