/*
 * The serial NOR flash: byte programming that only clears bits, 64 KiB erase blocks, each with its own volatile write
 * lock. The blocks of protected partitions are locked at power-up; a locked block refuses to be written or erased.
 */
#include <linux/bitmap.h>
#include <linux/module.h>
#include <linux/mutex.h>
#include "vboard.h"

#define NOR_SLOT 0x10
#define NOR_ERASE_BLOCK (64 << 10)
#define NOR_BLOCKS_MAX 1024

static struct flash_cells nor_cells;
static DECLARE_BITMAP(nor_locked, NOR_BLOCKS_MAX);
static DEFINE_MUTEX(nor_mutex);

static bool any_locked(u64 from, u64 length)
{
    unsigned int first = from / NOR_ERASE_BLOCK, end = DIV_ROUND_UP(from + length, NOR_ERASE_BLOCK);

    return find_next_bit(nor_locked, end, first) < end;
}

static int nor_read(struct mtd_info *mtd, loff_t from, size_t length, size_t *done, u_char *buffer)
{
    int fault = faults_check(mtd, FLASH_READ, from, length);

    if (fault < 0)
        return fault;
    if (fault == FAULT_CUT)
        faults_cut_power();
    cells_read(&nor_cells, from, buffer, length);
    *done = length;
    return 0;
}

static int nor_write(struct mtd_info *mtd, loff_t to, size_t length, size_t *done, const u_char *buffer)
{
    int result = faults_check(mtd, FLASH_WRITE, to, length);

    if (result < 0)
        return result;
    mutex_lock(&nor_mutex);
    if (any_locked(to, length)) {
        mutex_unlock(&nor_mutex);
        return -EROFS;
    }
    journal_note(mtd, FLASH_WRITE, to, length, buffer, false);
    cells_program(&nor_cells, to, buffer, result == FAULT_CUT ? faults_done_before_cut(length) : length);
    mutex_unlock(&nor_mutex);
    if (result == FAULT_CUT)
        faults_cut_power();
    *done = length;
    return 0;
}

/* Erases block by block, as a driver must, so that the n-th block of a long request can fail. */
static int nor_erase(struct mtd_info *mtd, struct erase_info *request)
{
    u64 block, end = request->addr + request->len;
    int result = 0;

    if (request->addr % NOR_ERASE_BLOCK || request->len % NOR_ERASE_BLOCK)
        return -EINVAL;
    for (block = request->addr; block < end && !result; block += NOR_ERASE_BLOCK) {
        result = faults_check(mtd, FLASH_ERASE, block, NOR_ERASE_BLOCK);
        if (result >= 0) {
            mutex_lock(&nor_mutex);
            if (any_locked(block, NOR_ERASE_BLOCK))
                result = -EROFS;
            else {
                journal_note(mtd, FLASH_ERASE, block, NOR_ERASE_BLOCK, NULL, false);
                cells_erase(&nor_cells, block, result == FAULT_CUT ? faults_done_before_cut(NOR_ERASE_BLOCK) : NOR_ERASE_BLOCK);
            }
            mutex_unlock(&nor_mutex);
        }
        if (result == FAULT_CUT)
            faults_cut_power();
        if (result < 0)
            request->fail_addr = block;
    }
    return result;
}

static int change_lock(struct mtd_info *mtd, loff_t from, u64 length, bool lock)
{
    int fault = faults_check(mtd, lock ? FLASH_LOCK : FLASH_UNLOCK, from, length);
    unsigned int first = from / NOR_ERASE_BLOCK, end = DIV_ROUND_UP(from + length, NOR_ERASE_BLOCK);

    if (fault < 0)
        return fault;
    if (fault == FAULT_CUT)
        faults_cut_power();
    mutex_lock(&nor_mutex);
    journal_note(mtd, lock ? FLASH_LOCK : FLASH_UNLOCK, from, length, NULL, false);
    if (lock)
        bitmap_set(nor_locked, first, end - first);
    else
        bitmap_clear(nor_locked, first, end - first);
    mutex_unlock(&nor_mutex);
    return 0;
}

static int nor_lock(struct mtd_info *mtd, loff_t from, u64 length)
{
    return change_lock(mtd, from, length, true);
}

static int nor_unlock(struct mtd_info *mtd, loff_t from, u64 length)
{
    return change_lock(mtd, from, length, false);
}

static int nor_is_locked(struct mtd_info *mtd, loff_t from, u64 length)
{
    bool locked;

    mutex_lock(&nor_mutex);
    locked = any_locked(from, length);
    mutex_unlock(&nor_mutex);
    return locked;
}

static void lock_at_power_up(u64 offset, u64 size)
{
    bitmap_set(nor_locked, offset / NOR_ERASE_BLOCK, size / NOR_ERASE_BLOCK);
}

static struct mtd_info nor_mtd = {
    .name = "nor",
    .owner = THIS_MODULE,
    .type = MTD_NORFLASH,
    .flags = MTD_CAP_NORFLASH,
    .erasesize = NOR_ERASE_BLOCK,
    .writesize = 1,
    .writebufsize = 256,
    ._read = nor_read,
    ._write = nor_write,
    ._erase = nor_erase,
    ._lock = nor_lock,
    ._unlock = nor_unlock,
    ._is_locked = nor_is_locked,
};

int nor_init(void)
{
    int error;

    nor_mtd.size = vboard_chip_size("nor");
    if (nor_mtd.size > (u64)NOR_BLOCKS_MAX * NOR_ERASE_BLOCK)
        return -EFBIG;
    /* Not inverted: the boot loader reads the window. */
    error = cells_open(&nor_cells, NOR_SLOT, nor_mtd.size, false);
    if (error)
        return error;
    nor_mtd.dev.parent = &nor_cells.pci->dev;
    vboard_each_locked("nor", lock_at_power_up);
    return vboard_register_partitions(&nor_mtd, "nor");
}
