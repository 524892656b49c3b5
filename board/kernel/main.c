/*
 * The virtual board's kernel module: brings the flash chips up in the device's order, then what else it has,
 * and answers questions about the layout. It stays loaded until power-off.
 */
#include <linux/debugfs.h>
#include <linux/module.h>
#include <linux/mtd/partitions.h>
#include <linux/mutex.h>
#include <linux/slab.h>
#include "vboard.h"

static unsigned int nand_page = 2048;
module_param(nand_page, uint, 0444);
MODULE_PARM_DESC(nand_page, "NAND page size: 2048 (128 KiB erase blocks) or 512 (16 KiB erase blocks)");

#define PARTITION(chip, name, kib, locked) {#chip, name, (u64)(kib) << 10, locked},
static const struct {
    const char *chip, *name;
    u64 size;
    bool locked;
} layout[] = {
#include "partitions.h"
};
#undef PARTITION

struct dentry *vboard_debugfs;

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
    struct mtd_info *found = find_on(&nor_mtd, number, name);

    return found ? found : find_on(&nand_mtd, number, name);
}

static int __init vboard_init(void)
{
    int error;

    vboard_debugfs = debugfs_create_dir(VBOARD_NAME, NULL);
    error = nor_init();
    if (!error)
        error = nand_init(nand_page);
    if (!error)
        error = partition_requests_init();
    if (!error)
        error = faults_init();
    if (!error)
        error = gpio_init();
    if (!error)
        error = link_init();
    if (!error)
        error = ctrl_init();
    if (!error)
        error = rs485_init();
    if (error)
        pr_err(VBOARD_NAME ": start failed: %d\n", error);
    return error;
}
module_init(vboard_init);

MODULE_DESCRIPTION("Virtual board: serial NOR and NAND flash, partition requests, planned faults, GPIO lines, cable, "
                   "control device");
MODULE_LICENSE("GPL");
