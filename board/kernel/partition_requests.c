/*
 * The device kernel's three partition requests, which the stock kernel does not know: create and delete partitions and
 * merge two of them at run time. The stock handler of flash device requests is probed at its entry, and just these
 * three numbers are sent here instead.
 */
#include <linux/fs.h>
#include <linux/mtd/partitions.h>
#include <linux/mutex.h>
#include <linux/slab.h>
#include <linux/uaccess.h>
#include "vboard.h"

#define REQUEST_CREATE 0x40044d17
#define REQUEST_DELETE 0x40044d18
#define REQUEST_MERGE 0x40044d1b
#define CREATE_COUNT_MAX 8

struct partition_record {
    char name[32];
    u64 size;
    u64 offset;
    u32 mask_flags;
    u32 padding;
};
static_assert(sizeof(struct partition_record) == 56);

struct creation_record {
    const struct partition_record __user *partitions;
    u32 count;
};

/* How the stock kernel's flash character device keeps what a descriptor belongs to. */
struct open_flash_device {
    struct mtd_info *mtd;
};

static DEFINE_MUTEX(request_mutex);

/* A descriptor is open, or UBI or a block device sits on it. */
static bool in_use(struct mtd_info *mtd)
{
#ifdef MTD_HAS_REFCNT
    return kref_read(&mtd->refcnt) > 1; /* one is the registration's own */
#else
    return mtd->usecount > 0;
#endif
}

static bool record_fits(const struct partition_record *record, const struct mtd_info *parent)
{
    return strnlen(record->name, sizeof(record->name)) < sizeof(record->name) && record->name[0] &&
           record->size && record->size <= parent->size && record->offset <= parent->size - record->size &&
           !mtd_mod_by_eb(record->size, (struct mtd_info *)parent) &&
           !mtd_mod_by_eb(record->offset, (struct mtd_info *)parent);
}

/* Partitions are made beside their parent, not inside it: they outlive it. */
static int add_beside(struct mtd_info *parent, const struct partition_record *record)
{
    return mtd_add_partition(mtd_get_master(parent), record->name, parent->part.offset + record->offset, record->size);
}

/* The number of the newest partition at this place, or -1. */
static int newest_at(struct mtd_info *master, u64 offset, u64 size)
{
    struct mtd_info *child;
    int number = -1;

    mutex_lock(&master->master.partitions_lock);
    list_for_each_entry(child, &master->partitions, part.node)
        if (child->part.offset == offset && child->size == size)
            number = child->index;
    mutex_unlock(&master->master.partitions_lock);
    return number;
}

static int create_partitions(struct mtd_info *parent, const struct partition_record *records, u32 count)
{
    struct mtd_info *master = mtd_get_master(parent);
    int error = 0;
    u32 made;

    for (made = 0; made < count; made++)
        if (!record_fits(&records[made], parent))
            return -EINVAL;
    for (made = 0; made < count && !error; made += !error)
        error = add_beside(parent, &records[made]);
    while (error && made--)
        mtd_del_partition(master, newest_at(master, parent->part.offset + records[made].offset, records[made].size));
    return error;
}

static long request_create(struct mtd_info *parent, const void __user *argument)
{
    struct partition_record *records;
    struct creation_record creation;
    long result;

    if (vboard_find_partition(parent->index, NULL) != parent)
        return -ENOTTY;
    if (copy_from_user(&creation, argument, sizeof(creation)))
        return -EFAULT;
    if (!creation.count || creation.count > CREATE_COUNT_MAX)
        return -EINVAL;
    records = memdup_user(creation.partitions, creation.count * sizeof(*records));
    if (IS_ERR(records))
        return PTR_ERR(records);
    result = create_partitions(parent, records, creation.count);
    kfree(records);
    return result;
}

static long request_delete(const void __user *argument)
{
    struct mtd_info *mtd;
    s32 number;

    if (copy_from_user(&number, argument, sizeof(number)))
        return -EFAULT;
    mtd = number < 0 ? NULL : vboard_find_partition(number, NULL);
    if (!mtd)
        return -ENODEV;
    if (in_use(mtd))
        return -EBUSY;
    return mtd_del_partition(mtd_get_master(mtd), number);
}

static int merge_partitions(struct mtd_info *first, struct mtd_info *second)
{
    struct mtd_info *master = mtd_get_master(first);
    u64 offset = first->part.offset, first_size = first->size, size = first_size + second->size;
    char *name;
    int error;

    if (first == second || master != mtd_get_master(second) || second->part.offset != offset + first_size)
        return -EINVAL;
    if (in_use(first) || in_use(second))
        return -EBUSY;
    name = kstrdup(first->name, GFP_KERNEL);
    if (!name)
        return -ENOMEM;
    error = mtd_del_partition(master, second->index);
    if (!error)
        error = mtd_del_partition(master, first->index);
    if (!error)
        error = mtd_add_partition(master, name, offset, size);
    kfree(name);
    return error;
}

static long request_merge(const void __user *argument)
{
    struct mtd_info *first, *second;
    u8 numbers[2];

    if (copy_from_user(numbers, argument, sizeof(numbers)))
        return -EFAULT;
    first = vboard_find_partition(numbers[0], NULL);
    second = vboard_find_partition(numbers[1], NULL);
    return first && second ? merge_partitions(first, second) : -ENODEV;
}

/* Stands in for the stock handler, so it has its arguments. */
static noinline long partition_request(struct file *file, unsigned int request, unsigned long argument)
{
    const struct open_flash_device *device = file->private_data;
    void __user *data = (void __user *)argument;
    long result;

    mutex_lock(&request_mutex);
    if (request == REQUEST_CREATE)
        result = request_create(device->mtd, data);
    else if (request == REQUEST_DELETE)
        result = request_delete(data);
    else
        result = request_merge(data);
    mutex_unlock(&request_mutex);
    return result;
}

static int redirect(struct kprobe *probe, struct pt_regs *registers)
{
    unsigned int request = registers->ARM_r1;

    if (request != REQUEST_CREATE && request != REQUEST_DELETE && request != REQUEST_MERGE)
        return 0;
    instruction_pointer_set(registers, (unsigned long)partition_request);
    return 1;
}

static struct kprobe request_probe = {
    .symbol_name = "mtdchar_unlocked_ioctl", .pre_handler = redirect, .post_handler = keep_breakpoint,
};

int partition_requests_init(void)
{
    return register_kprobe(&request_probe);
}
