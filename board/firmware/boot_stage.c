/*
 * The kernel's own part of a firmware: loads the flash driver and what else it needs, attaches UBI and changes into the root
 * file system that the boot loader has named with root=ubi0:VOLUME. Without one the device goes to the recovery shell.
 */
#include "firmware.h"

#include <errno.h>
#include <fcntl.h>
#include <mtd/ubi-user.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <unistd.h>

#define NEW_ROOT "/root"

/* The words vboard.NAME=VALUE of the kernel command line, as NAME=VALUE. */
static void flash_parameters(char *parameters, size_t size)
{
    static const char mark[] = "vboard.";
    char line[2048], *rest, *word;
    size_t used = 0;

    parameters[0] = '\0';
    if (!first_line("/proc/cmdline", line, sizeof(line)))
        return;
    for (word = strtok_r(line, " ", &rest); word; word = strtok_r(NULL, " ", &rest))
        if (!strncmp(word, mark, sizeof(mark) - 1) && used + strlen(word) < size)
            used += (size_t)sprintf(parameters + used, "%s ", word + sizeof(mark) - 1);
}

static void load_modules(void)
{
    char path[256], parameters[512];
    FILE *list = fopen("/etc/modules.order", "r");

    flash_parameters(parameters, sizeof(parameters));
    while (list && fgets(path, sizeof(path), list)) {
        int module;

        path[strcspn(path, "\n")] = '\0';
        module = open(path, O_RDONLY | O_CLOEXEC);
        if (syscall(SYS_finit_module, module, strstr(path, "vboard") ? parameters : "", 0))
            printf("firmware: %s: %s\n", path, strerror(errno));
        close(module);
    }
    if (list)
        fclose(list);
}

/* Returns what could not be done, or null. */
static const char *attach_ubi(void)
{
    struct ubi_attach_req request = { .ubi_num = 0, .mtd_num = flash_partition("ubi0") };
    int control = open("/dev/ubi_ctrl", O_RDONLY | O_CLOEXEC);
    const char *failed = NULL;

    if (request.mtd_num < 0)
        failed = "no flash partition ubi0";
    else if (control < 0 || ioctl(control, UBI_IOCATT, &request))
        failed = "cannot attach UBI";
    if (control >= 0)
        close(control);
    return failed;
}

/* Returns what could not be done, or null. */
static const char *enter_root(const char *volume)
{
    if (mount(volume, NEW_ROOT, "ubifs", MS_RDONLY, NULL))
        return "cannot mount it";
    if (access(NEW_ROOT "/sbin/init", X_OK))
        return "it has no first process";
    if (mount("/dev", NEW_ROOT "/dev", NULL, MS_MOVE, NULL) || mount("/proc", NEW_ROOT "/proc", NULL, MS_MOVE, NULL))
        return "it has no places for devices and processes";
    if (chdir(NEW_ROOT) || mount(".", "/", NULL, MS_MOVE, NULL) || chroot(".") || chdir("/"))
        return "cannot change into it";
    return NULL;
}

void boot_stage(void)
{
    char volume[64] = "none", version[64] = "unknown";
    const char *failed;
    int have_volume;

    mount("proc", "/proc", "proc", 0, NULL);
    mount("dev", "/dev", "devtmpfs", 0, NULL);
    console_open();
    first_line("/etc/version", version, sizeof(version));
    load_modules();
    have_volume = command_line("root", volume, sizeof(volume));
    failed = have_volume ? attach_ubi() : "no root= on the command line";
    if (!failed)
        failed = enter_root(volume);
    if (!failed) {
        setenv("KERNEL_VERSION", version, 1);
        execl("/sbin/init", "init", (char *)NULL);
        failed = "cannot start its first process";
    }
    printf("Firmware kernel %s: root file system %s: %s (%s)\n", version, volume, failed, strerror(errno));
    restart_into_shell();
}
