/* Which of the two programs this is, and what both need. */
#include "firmware.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/reboot.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

int first_line(const char *path, char *line, size_t size)
{
    FILE *file = fopen(path, "r");
    int found = file && fgets(line, (int)size, file);

    if (file)
        fclose(file);
    if (found)
        line[strcspn(line, "\n")] = '\0';
    return found;
}

int command_line(const char *name, char *value, size_t size)
{
    char line[2048], *rest, *word;
    size_t length = strlen(name);

    if (!first_line("/proc/cmdline", line, sizeof(line)))
        return 0;
    for (word = strtok_r(line, " ", &rest); word; word = strtok_r(NULL, " ", &rest))
        if (!strncmp(word, name, length) && word[length] == '=')
            return snprintf(value, size, "%s", word + length + 1) < (int)size;
    return 0;
}

int flash_partition(const char *name)
{
    char line[128], found[64];
    int number, result = -1;
    FILE *list = fopen("/proc/mtd", "r");

    while (list && result < 0 && fgets(line, sizeof(line), list))
        if (sscanf(line, "mtd%d: %*x %*x \"%63[^\"]", &number, found) == 2 && !strcmp(found, name))
            result = number;
    if (list)
        fclose(list);
    return result;
}

void console_open(void)
{
    char word[64], path[80];
    struct termios settings;
    int port;

    if (!command_line("cli_console", word, sizeof(word)))
        strcpy(word, "ttyS1");
    word[strcspn(word, ",")] = '\0';
    snprintf(path, sizeof(path), "/dev/%s", word);
    port = open(path, O_RDWR);
    if (port < 0)
        return;
    if (!tcgetattr(port, &settings)) {
        settings.c_cflag |= CLOCAL | CREAD;
        cfsetspeed(&settings, B115200);
        tcsetattr(port, TCSANOW, &settings);
    }
    dup2(port, STDIN_FILENO);
    dup2(port, STDOUT_FILENO);
    dup2(port, STDERR_FILENO);
    if (port > STDERR_FILENO)
        close(port);
}

void restart(void)
{
    fflush(stdout);
    tcdrain(STDOUT_FILENO);
    sync();
    reboot(RB_AUTOBOOT);
    for (;;)
        pause();
}

int main(void)
{
    struct stat status;

    setvbuf(stdout, NULL, _IOLBF, 0);
    if (stat("/etc/firmware.files", &status) == 0)
        main_stage();
    else
        boot_stage();
    return 1;
}
