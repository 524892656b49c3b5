/*
 * The journal of what was done to the flash chips, for whoever wants to know what a power cut at any of these operations
 * would have left. The file "journal" in debugfs: "on" forgets what it holds and begins, "off" ends; reading takes records
 * out of it, in the order in which cells were changed:
 *
 *   u32 length of the data behind this head; of a lock, unlock or erase 0
 *   u8  operation, as in enum flash_operation; u8 chip, 0 NOR, 1 NAND; u16 1 if spare bytes were written, too
 *   u64 address on the chip, u64 bytes that it is about, u64 nanoseconds since power-up
 *
 * all in this processor's order. Noted is what is about to be done.
 */
#include <linux/debugfs.h>
#include <linux/ktime.h>
#include <linux/list.h>
#include <linux/mutex.h>
#include <linux/slab.h>
#include <linux/uaccess.h>
#include "vboard.h"

#define COMMAND_LENGTH_MAX 8

struct record {
    struct list_head node;
    size_t read;
    struct {
        u32 length;
        u8 operation, chip;
        u16 spare;
        u64 address, size, time;
    } head;
    u8 data[];
};

static LIST_HEAD(records);
static DEFINE_MUTEX(journal_mutex);
static bool journal_on;

static void forget_all(void)
{
    struct record *record, *next;

    list_for_each_entry_safe(record, next, &records, node) {
        list_del(&record->node);
        kvfree(record);
    }
}

void journal_note(const struct mtd_info *master, enum flash_operation operation, u64 address, u64 size, const void *data,
                  bool spare)
{
    size_t length = data ? size : 0;
    struct record *record;

    mutex_lock(&journal_mutex);
    if (journal_on) {
        record = kvzalloc(sizeof(*record) + length, GFP_NOIO);
        /* Under a lock of the flash: memory must not be made free by writing there. One missing would make the rest a lie. */
        if (!record)
            panic(VBOARD_NAME ": no memory for the journal");
        record->head.length = length;
        record->head.operation = operation;
        record->head.chip = master->type == MTD_NANDFLASH;
        record->head.spare = spare;
        record->head.address = address;
        record->head.size = size;
        record->head.time = ktime_get_ns();
        if (data)
            memcpy(record->data, data, length);
        list_add_tail(&record->node, &records);
    }
    mutex_unlock(&journal_mutex);
}

static ssize_t journal_read(struct file *file, char __user *to, size_t room, loff_t *position)
{
    struct record *record, *next;
    size_t taken = 0, piece;
    ssize_t error = 0;

    mutex_lock(&journal_mutex);
    list_for_each_entry_safe(record, next, &records, node) {
        piece = min(room - taken, sizeof(record->head) + record->head.length - record->read);
        /* The head's end is where the data begin. */
        if (copy_to_user(to + taken, (u8 *)&record->head + record->read, piece)) {
            error = -EFAULT;
            break;
        }
        taken += piece;
        record->read += piece;
        if (record->read < sizeof(record->head) + record->head.length)
            break;
        list_del(&record->node);
        kvfree(record);
    }
    mutex_unlock(&journal_mutex);
    return taken ? taken : error;
}

static ssize_t journal_write(struct file *file, const char __user *data, size_t length, loff_t *position)
{
    char text[COMMAND_LENGTH_MAX];
    int error = fetch_text(text, sizeof(text), data, length);

    if (error)
        return error;
    if (!sysfs_streq(text, "on") && !sysfs_streq(text, "off"))
        return -EINVAL;
    mutex_lock(&journal_mutex);
    journal_on = sysfs_streq(text, "on");
    if (journal_on)
        forget_all();
    mutex_unlock(&journal_mutex);
    return length;
}

static const struct file_operations journal_operations = {
    .owner = THIS_MODULE,
    .open = nonseekable_open,
    .read = journal_read,
    .write = journal_write,
    .llseek = no_llseek,
};

int journal_init(void)
{
    BUILD_BUG_ON(offsetof(struct record, data) != offsetof(struct record, head) + sizeof(((struct record *)0)->head));
    debugfs_create_file("journal", 0600, vboard_debugfs, NULL, &journal_operations);
    return 0;
}
