/*
 * From the firmware into the recovery shell: bootcmd in the boot environment becomes "run cfgldrboot". The shell's
 * `set bootenv bootcmd run flashboot` leads back.
 */
#include "firmware.h"
#include "crc32.h"

#include <errno.h>
#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

#define NAME "bootcmd="
#define SETTING NAME "run cfgldrboot"

/* Replaces the variable in `texts` (NUL-terminated, an empty one at the end). Returns 0 when there is no room or no end. */
static int replace(char *texts, size_t size)
{
    char *end = texts, *variable = NULL;
    size_t length;

    while (*end) {
        length = strnlen(end, (size_t)(texts + size - end));
        if (end + length + 1 >= texts + size)
            return 0;
        if (!strncmp(end, NAME, sizeof(NAME) - 1))
            variable = end;
        end += length + 1;
    }
    if (variable) {
        length = strlen(variable) + 1;
        memmove(variable, variable + length, (size_t)(end + 1 - variable) - length);
        end -= length;
    }
    if (end + sizeof(SETTING) + 1 > texts + size)
        return 0;
    memcpy(end, SETTING, sizeof(SETTING));
    memset(end + sizeof(SETTING), 0, (size_t)(texts + size - end) - sizeof(SETTING));
    return 1;
}

/* Puts the new environment into the place of the old one. Returns what could not be done, or null. */
static const char *rewrite(int flash, size_t size)
{
    unsigned char *data = malloc(size);
    struct erase_info_user all = { .start = 0, .length = size };
    const char *failed = NULL;
    unsigned int sum;

    if (!data || pread(flash, data, size, 0) != (ssize_t)size)
        return "cannot be read";
    memcpy(&sum, data, sizeof(sum));
    if (sum != crc32(0, data + sizeof(sum), size - sizeof(sum)))
        return "is bad, so the recovery system starts anyway";
    if (!replace((char *)data + sizeof(sum), size - sizeof(sum)))
        return "has no room";
    sum = crc32(0, data + sizeof(sum), size - sizeof(sum));
    memcpy(data, &sum, sizeof(sum));
    if (ioctl(flash, MEMUNLOCK, &all) || ioctl(flash, MEMERASE, &all) || pwrite(flash, data, size, 0) != (ssize_t)size)
        failed = "cannot be written";
    ioctl(flash, MEMLOCK, &all);
    free(data);
    return failed;
}

void restart_into_shell(void)
{
    char path[32];
    struct mtd_info_user info;
    const char *failed = "is not there";
    int flash;

    snprintf(path, sizeof(path), "/dev/mtd%d", flash_partition("bootenv_1"));
    flash = open(path, O_RDWR | O_CLOEXEC);
    if (flash >= 0 && !ioctl(flash, MEMGETINFO, &info))
        failed = rewrite(flash, info.size);
    if (failed)
        printf("Firmware: the boot environment %s\n", failed);
    printf("Firmware: restarting into the recovery shell\n");
    restart();
}
