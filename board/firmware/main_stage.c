/*
 * The firmware at work: says on the console which bank it runs from, which versions kernel and root file system are, and
 * whether all files are what was built; then takes orders.
 */
#include "firmware.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

/* The version of the product information file, without its quotes. */
static void root_version(char *version, size_t size)
{
    char line[128];

    snprintf(version, size, "unknown");
    if (first_line("/etc/.vexo_product_info", line, sizeof(line)))
        sscanf(line, "VEXO_PRODUCT_VERSION=\"%31[^\"]", version);
}

static void report(void)
{
    char volume[64] = "none", version[64];
    const char *kernel = getenv("KERNEL_VERSION"), *name;
    int whole;

    command_line("root", volume, sizeof(volume));
    name = strchr(volume, ':') ? strchr(volume, ':') + 1 : volume;
    root_version(version, sizeof(version));
    whole = files_whole();
    printf("Firmware %s on %s, kernel %s: ", version, name, kernel ? kernel : "unknown");
    if (whole < 0)
        printf("NOT WHOLE\n");
    else
        printf("%d files, all whole\n", whole);
}

void main_stage(void)
{
    char line[64];

    console_open();
    printf("\n");
    report();
    for (;;) {
        printf("Orders: status, restart, shell (restart into the recovery shell)\n> ");
        fflush(stdout);
        if (!fgets(line, sizeof(line), stdin)) {
            clearerr(stdin);
            sleep(1);
            continue;
        }
        line[strcspn(line, "\r\n")] = '\0';
        if (!strcmp(line, "status"))
            report();
        else if (!strcmp(line, "restart"))
            restart();
        else if (!strcmp(line, "shell"))
            restart_into_shell();
    }
}
