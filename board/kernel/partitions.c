/*
 * The flash layout: what partitions.h says, registered with the kernel chip by chip, and which partitions are there now.
 */
#include <linux/kernel.h>
#include <linux/mtd/partitions.h>
#include <linux/mutex.h>
#include <linux/slab.h>
#include "vboard.h"

#define PARTITION(chip, name, kib, locked) {#chip, name, (u64)(kib) << 10, locked},
static const struct {
    const char *chip, *name;
    u64 size;
    bool locked;
} layout[] = {
#include "partitions.h"
};
#undef PARTITION

/* In the order in which they came up. */
static struct mtd_info *chips[2];
static size_t chip_count;

u64 vboard_chip_size(const char *chip)
{
    u64 size = 0;
    size_t i;

    for (i = 0; i < ARRAY_SIZE(layout); i++)
        if (!strcmp(layout[i].chip, chip))
            size += layout[i].size;
    return size;
}

void vboard_each_locked(const char *chip, void (*visit)(u64 offset, u64 size))
{
    u64 offset = 0;
    size_t i;

    for (i = 0; i < ARRAY_SIZE(layout); i++) {
        if (strcmp(layout[i].chip, chip))
            continue;
        if (layout[i].locked)
            visit(offset, layout[i].size);
        offset += layout[i].size;
    }
}

int vboard_register_partitions(struct mtd_info *master, const char *chip)
{
    static const char *const no_parsers[] = {NULL};
    struct mtd_partition *partitions;
    u64 offset = 0;
    int count = 0, error;
    size_t i;

    if (chip_count == ARRAY_SIZE(chips))
        return -ENOSPC;
    partitions = kcalloc(ARRAY_SIZE(layout), sizeof(*partitions), GFP_KERNEL);
    if (!partitions)
        return -ENOMEM;
    for (i = 0; i < ARRAY_SIZE(layout); i++) {
        if (strcmp(layout[i].chip, chip))
            continue;
        partitions[count].name = layout[i].name;
        partitions[count].size = layout[i].size;
        partitions[count++].offset = offset;
        offset += layout[i].size;
    }
    error = mtd_device_parse_register(master, no_parsers, NULL, partitions, count);
    kfree(partitions);
    if (!error)
        chips[chip_count++] = master;
    return error;
}

static struct mtd_info *find_on(struct mtd_info *master, int number, const char *name)
{
    struct mtd_info *child, *found = NULL;

    mutex_lock(&master->master.partitions_lock);
    list_for_each_entry(child, &master->partitions, part.node)
        if (!found && (name ? !strcmp(child->name, name) : child->index == number))
            found = child;
    mutex_unlock(&master->master.partitions_lock);
    return found;
}

struct mtd_info *vboard_find_partition(int number, const char *name)
{
    struct mtd_info *found = NULL;
    size_t i;

    for (i = 0; i < chip_count && !found; i++)
        found = find_on(chips[i], number, name);
    return found;
}
