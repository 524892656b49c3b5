/* The files of a fresh device root, as skeleton.h says. */
#define _GNU_SOURCE
#include "skeleton.h"

#include "control.h"
#include "ethernet.h"

#include <errno.h>
#include <fcntl.h>
#include <ftw.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

static const char* const directories[] = {
    "/.harness",      ANSWERS_DIRECTORY,
    "/bin",           "/cfg",
    "/dev",           "/etc",
    "/lib64",         "/mnt",
    "/proc",          "/sbin",
    "/sys",           "/sys/class",
    "/sys/class/ubi", "/sys/class/gpio",
    "/tmp",           "/usr",
    "/usr/bin",       "/usr/lib",
    "/usr/sbin",
};

/* What skeleton_wipe empties: nothing is ever mounted below these, save single files of /dev. */
static const char* const wiped_directories[] = {
    ANSWERS_DIRECTORY, "/bin", "/cfg", "/dev",     "/etc",      "/mnt",
    "/sbin",           "/sys", "/tmp", "/usr/bin", "/usr/sbin",
};

/* Every tool the device's root file system provides, where it provides it. */
static const char* const tools[] = {
    "/bin/chmod",
    "/bin/cp",
    "/bin/dmesg",
    "/bin/grep",
    "/bin/iproute",
    "/bin/mkdir",
    "/bin/mount",
    "/bin/mv",
    "/bin/ping",
    "/bin/ps",
    "/bin/rm",
    "/bin/sh",
    "/bin/tar",
    "/bin/umount",
    "/sbin/ifconfig",
    "/sbin/mdev",
    "/sbin/reboot",
    "/sbin/route",
    "/sbin/udhcpc",
    "/usr/bin/awk",
    "/usr/bin/install",
    "/usr/bin/tftp",
    "/usr/bin/top",
    "/usr/sbin/flash_erase",
    "/usr/sbin/flash_lock",
    "/usr/sbin/flash_unlock",
    "/usr/sbin/flashcp",
    "/usr/sbin/fw_printenv",
    "/usr/sbin/fw_setenv",
    "/usr/sbin/jffs2dump",
    "/usr/sbin/mtd_debug",
    "/usr/sbin/nanddump",
    "/usr/sbin/nandwrite",
    "/usr/sbin/ubiattach",
    "/usr/sbin/ubidetach",
    "/usr/sbin/ubiformat",
    "/usr/sbin/ubimkvol",
    "/usr/sbin/ubirsvol",
    "/usr/sbin/ubiupdatevol",
};

static const struct {
  uint32_t size;
  uint32_t erase_size;
  const char* name;
} partitions[] = {
    {0x00020000, 0x10000, "bootstrap"},     {0x00010000, 0x10000, "prod_config"},
    {0x00080000, 0x10000, "bootloader"},    {0x00010000, 0x10000, "bootenv_1"},
    {0x00010000, 0x10000, "bootenv_2"},     {0x00400000, 0x10000, "kernel_1"},
    {0x00400000, 0x10000, "kernel_2"},      {0x00400000, 0x10000, "kernel_single"},
    {0x00300000, 0x10000, "config_loader"}, {0x00040000, 0x10000, "param_space"},
    {0x08000000, 0x20000, "ubi0"},
};

#define COUNT(array) (sizeof(array) / sizeof((array)[0]))

static void die(const char* what, const char* path) {
  fprintf(stderr, "device root: %s %s: %s\n", what, path, strerror(errno));
  exit(1);
}

static const char* below(const char* root, const char* path) {
  static char full[4096];
  snprintf(full, sizeof full, "%s%s", root, path);
  return full;
}

static void put_directory(const char* root, const char* path) {
  const char* full = below(root, path);
  if (mkdir(full, 0755) != 0 && errno != EEXIST) {
    die("mkdir", full);
  }
}

static void put_link(const char* root, const char* path, const char* target) {
  const char* full = below(root, path);
  unlink(full);
  if (symlink(target, full) != 0) {
    die("symlink", full);
  }
}

static void put_file(const char* root, const char* path, const void* data, size_t size, off_t length) {
  const char* full = below(root, path);
  unlink(full);
  int fd = open(full, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  if (fd < 0 || write(fd, data, size) != (ssize_t)size || ftruncate(fd, length) != 0) {
    die("create", full);
  }
  close(fd);
}

static void put_text(const char* root, const char* path, const char* text) {
  put_file(root, path, text, strlen(text), (off_t)strlen(text));
}

static void put_partitions(const char* root) {
  char text[2048] = "dev:    size   erasesize  name\n";
  for (size_t i = 0; i < COUNT(partitions); i++) {
    size_t used = strlen(text);
    snprintf(text + used, sizeof text - used, "mtd%zu: %08x %08x \"%s\"\n", i, (unsigned)partitions[i].size,
             (unsigned)partitions[i].erase_size, partitions[i].name);
    char node[32];
    snprintf(node, sizeof node, "/dev/mtd%zu", i);
    put_file(root, node, "", 0, partitions[i].size);
  }
  put_text(root, "/proc/mtd", text);
}

/* Rewritten in place: the stand-in of a running process keeps the file mapped. */
static void put_control(const char* root) {
  struct control control = {.sleep_scale = 0.01, .free_blocks = 25600, .block_size = 4096};
  const char* full = below(root, CONTROL_FILE);
  int fd = open(full, O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0 || pwrite(fd, &control, sizeof control, 0) != (ssize_t)sizeof control) {
    die("create", full);
  }
  close(fd);
}

void skeleton_make(const char* root) {
  for (size_t i = 0; i < COUNT(directories); i++) {
    put_directory(root, directories[i]);
  }
  put_link(root, "/lib", "usr/lib");
  put_link(root, "/dev/ptmx", "pts/ptmx");
  put_link(root, "/proc/self", "/.harness/proc/self");
  for (size_t i = 0; i < COUNT(tools); i++) {
    put_link(root, tools[i], "/.harness/bin/recorder");
  }
  put_partitions(root);
  put_text(root, "/proc/cmdline", "console=ttyS0,115200 root=/dev/ram0 cli_console=ttyS1,115200\n");
  put_text(root, ENV_FILE, "bootbank=1\nbootdelay=3\nethaddr=00:20:4a:00:00:01\n");
  put_text(root, BAD_BLOCKS_FILE, "");
  put_text(root, ETHERNET_FILE, ETHERNET_FRESH);
  put_text(root, EVENT_LOG_FILE, "");
  put_control(root);
}

static const char* kept_directory;

/* A mount point answers EBUSY and stays. */
static int wipe_one(const char* path, const struct stat* status, int type, struct FTW* where) {
  (void)status;
  (void)where;
  if (strcmp(path, kept_directory) != 0 && remove(path) != 0 && errno != EBUSY && type != FTW_DP) {
    die("remove", path);
  }
  return 0;
}

void skeleton_wipe(const char* root) {
  for (size_t i = 0; i < COUNT(wiped_directories); i++) {
    kept_directory = below(root, wiped_directories[i]);
    if (nftw(kept_directory, wipe_one, 16, FTW_DEPTH | FTW_PHYS | FTW_MOUNT) != 0) {
      die("wipe", kept_directory);
    }
  }
}
