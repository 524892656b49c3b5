/* The list of a root file system's files, /etc/firmware.files: a line "CRC-32 SIZE PATH" for each, as it was built. */
#include "firmware.h"
#include "crc32.h"

#include <stdio.h>
#include <sys/stat.h>

#define LIST "/etc/firmware.files"

static int is_whole(const char *path, unsigned int sum, unsigned long size)
{
    unsigned char piece[4096];
    unsigned int found = 0;
    unsigned long length = 0;
    size_t got;
    FILE *file = fopen(path, "r");

    if (!file)
        return 0;
    while ((got = fread(piece, 1, sizeof(piece), file)) > 0) {
        found = crc32(found, piece, got);
        length += got;
    }
    got = (size_t)ferror(file);
    fclose(file);
    return !got && found == sum && length == size;
}

int files_whole(void)
{
    char path[256];
    unsigned int sum;
    unsigned long size;
    int whole = 0, listed = 0, fields;
    FILE *list = fopen(LIST, "r");

    if (!list)
        return -1;
    while ((fields = fscanf(list, "%x %lu %255s", &sum, &size, path)) == 3) {
        listed++;
        if (is_whole(path, sum, size))
            whole++;
        else
            printf("Firmware: %s is not what was built\n", path);
    }
    fclose(list);
    return fields == EOF && listed && whole == listed ? whole : -1;
}
