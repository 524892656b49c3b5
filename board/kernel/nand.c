/*
 * The NAND flash, in either geometry that the device was built with. Its file holds the pages first and then, from the
 * chip's size on, the OOB bytes of page 0, 1, 2, ... A block is bad when the mark in the OOB of its first or second page
 * is not 0xFF; the mark survives everything, also an erase, which a bad block refuses. There is no ECC: cells do not
 * age here, and errors come from planned faults (EUCLEAN and EBADMSG make a read a corrected and a lost one).
 */
#include <linux/math64.h>
#include <linux/module.h>
#include <linux/mutex.h>
#include "vboard.h"

#define NAND_SLOT 0x11
/* Blocks that may be bad, per chip, as data sheets promise: 20 in 1024. */
#define BAD_BLOCKS_PER_1024 20

static unsigned int nand_page = 2048;
module_param(nand_page, uint, 0444);
MODULE_PARM_DESC(nand_page, "NAND page size: 2048 (128 KiB erase blocks, 64 bytes of OOB) or 512 (16 KiB, 16 bytes)");

static struct flash_cells nand_cells;
static DEFINE_MUTEX(nand_mutex);
static unsigned int bad_mark;

static bool is_multiple(u64 number, u32 of)
{
    u32 rest;

    div_u64_rem(number, of, &rest);
    return !rest;
}

static u64 oob_address(const struct mtd_info *mtd, u64 page)
{
    return mtd->size + page * mtd->oobsize;
}

/* The first page of the block that this address lies in. */
static u64 first_page(const struct mtd_info *mtd, loff_t offset)
{
    return div_u64(offset, mtd->erasesize) * (mtd->erasesize / mtd->writesize);
}

static int nand_block_is_bad(struct mtd_info *mtd, loff_t offset)
{
    u64 page = first_page(mtd, offset);
    u8 first, second;

    cells_read(&nand_cells, oob_address(mtd, page) + bad_mark, &first, 1);
    cells_read(&nand_cells, oob_address(mtd, page + 1) + bad_mark, &second, 1);
    return first != 0xff || second != 0xff;
}

static int nand_block_mark_bad(struct mtd_info *mtd, loff_t offset)
{
    u64 page = first_page(mtd, offset);
    const u8 mark = 0;

    mutex_lock(&nand_mutex);
    if (!nand_block_is_bad(mtd, offset))
        mtd->ecc_stats.badblocks++;
    cells_program(&nand_cells, oob_address(mtd, page) + bad_mark, &mark, 1);
    mutex_unlock(&nand_mutex);
    return 0;
}

/* Moves the OOB part of one page; answers how many of the bytes asked for that were. */
static size_t move_oob(struct mtd_info *mtd, u64 page, struct mtd_oob_ops *ops, bool program)
{
    u8 oob[64], *data = ops->oobbuf + ops->oobretlen;
    size_t length = min_t(size_t, ops->ooblen - ops->oobretlen, mtd_oobavail(mtd, ops) - ops->ooboffs);
    u64 address = oob_address(mtd, page);

    if (program) {
        memset(oob, 0xff, sizeof(oob));
        if (ops->mode == MTD_OPS_AUTO_OOB)
            mtd_ooblayout_set_databytes(mtd, data, oob, ops->ooboffs, length);
        else
            memcpy(oob + ops->ooboffs, data, length);
        cells_program(&nand_cells, address, oob, mtd->oobsize);
    } else {
        cells_read(&nand_cells, address, oob, mtd->oobsize);
        if (ops->mode == MTD_OPS_AUTO_OOB)
            mtd_ooblayout_get_databytes(mtd, data, oob, ops->ooboffs, length);
        else
            memcpy(data, oob + ops->ooboffs, length);
    }
    return length;
}

static int nand_read_oob(struct mtd_info *mtd, loff_t from, struct mtd_oob_ops *ops)
{
    int fault = faults_check(mtd, FLASH_READ, from, max_t(size_t, ops->len, 1));
    u64 page;

    ops->retlen = 0;
    ops->oobretlen = 0;
    if (fault == FAULT_CUT)
        faults_cut_power();
    if (fault < 0 && fault != -EUCLEAN && fault != -EBADMSG)
        return fault;
    mutex_lock(&nand_mutex);
    if (ops->datbuf) {
        cells_read(&nand_cells, from, ops->datbuf, ops->len);
        ops->retlen = ops->len;
    }
    for (page = div_u64(from, mtd->writesize); ops->oobbuf && ops->oobretlen < ops->ooblen; page++)
        ops->oobretlen += move_oob(mtd, page, ops, false);
    if (fault == -EUCLEAN)
        mtd->ecc_stats.corrected++;
    if (fault == -EBADMSG)
        mtd->ecc_stats.failed++;
    mutex_unlock(&nand_mutex);
    /* The core makes its -EUCLEAN of the number of bit flips that were corrected. */
    return fault == -EUCLEAN ? (int)mtd->ecc_strength : fault;
}

static int nand_write_oob(struct mtd_info *mtd, loff_t to, struct mtd_oob_ops *ops)
{
    int fault;
    u64 page;

    ops->retlen = 0;
    ops->oobretlen = 0;
    if (!is_multiple(to, mtd->writesize) || (ops->datbuf && ops->len % mtd->writesize))
        return -EINVAL;
    fault = faults_check(mtd, FLASH_WRITE, to, max_t(size_t, ops->len, 1));
    if (fault < 0)
        return fault;
    mutex_lock(&nand_mutex);
    journal_note(mtd, FLASH_WRITE, to, ops->datbuf ? ops->len : 0, ops->datbuf, ops->oobbuf);
    if (ops->datbuf) {
        cells_program(&nand_cells, to, ops->datbuf, fault == FAULT_CUT ? faults_done_before_cut(ops->len) : ops->len);
        ops->retlen = ops->len;
    }
    if (fault == FAULT_CUT)
        faults_cut_power();
    for (page = div_u64(to, mtd->writesize); ops->oobbuf && ops->oobretlen < ops->ooblen; page++)
        ops->oobretlen += move_oob(mtd, page, ops, true);
    mutex_unlock(&nand_mutex);
    return 0;
}

static void erase_block(struct mtd_info *mtd, u64 block, u64 length)
{
    u64 oob_length = mtd->erasesize / mtd->writesize * mtd->oobsize;

    cells_erase(&nand_cells, block, length);
    cells_erase(&nand_cells, oob_address(mtd, div_u64(block, mtd->writesize)), oob_length);
}

static int nand_erase(struct mtd_info *mtd, struct erase_info *request)
{
    u64 block, end = request->addr + request->len;
    int result = 0;

    if (!is_multiple(request->addr, mtd->erasesize) || !is_multiple(request->len, mtd->erasesize))
        return -EINVAL;
    for (block = request->addr; block < end && !result; block += mtd->erasesize) {
        result = faults_check(mtd, FLASH_ERASE, block, mtd->erasesize);
        mutex_lock(&nand_mutex);
        if (result >= 0 && nand_block_is_bad(mtd, block))
            result = -EIO;
        if (result >= 0) {
            journal_note(mtd, FLASH_ERASE, block, mtd->erasesize, NULL, false);
            erase_block(mtd, block, result == FAULT_CUT ? faults_done_before_cut(mtd->erasesize) : mtd->erasesize);
        }
        if (result == FAULT_CUT)
            faults_cut_power();
        mutex_unlock(&nand_mutex);
        if (result < 0)
            request->fail_addr = block;
    }
    return result;
}

static int nand_max_bad_blocks(struct mtd_info *mtd, loff_t offset, size_t length)
{
    return DIV_ROUND_UP((u32)div_u64(mtd->size, mtd->erasesize) * BAD_BLOCKS_PER_1024, 1024);
}

/* The first half of the OOB after the bad block mark is free, the second half is the place of the ECC. */
static int oob_ecc(struct mtd_info *mtd, int section, struct mtd_oob_region *region)
{
    if (section)
        return -ERANGE;
    region->offset = mtd->oobsize / 2;
    region->length = mtd->oobsize / 2;
    return 0;
}

static int oob_free(struct mtd_info *mtd, int section, struct mtd_oob_region *region)
{
    if (section)
        return -ERANGE;
    region->offset = bad_mark + 1;
    region->length = mtd->oobsize / 2 - region->offset;
    return 0;
}

static const struct mtd_ooblayout_ops oob_layout = {.ecc = oob_ecc, .free = oob_free};

static struct mtd_info nand_mtd = {
    .name = "nand",
    .owner = THIS_MODULE,
    .type = MTD_NANDFLASH,
    .flags = MTD_CAP_NANDFLASH,
    .ecc_strength = 4,
    .bitflip_threshold = 3,
    .ecc_step_size = 512,
    ._read_oob = nand_read_oob,
    ._write_oob = nand_write_oob,
    ._erase = nand_erase,
    ._block_isbad = nand_block_is_bad,
    ._block_markbad = nand_block_mark_bad,
    ._max_bad_blocks = nand_max_bad_blocks,
};

int nand_init(void)
{
    bool small_page = nand_page == 512;
    u64 block;
    int error;

    if (nand_page != 512 && nand_page != 2048)
        return -EINVAL;
    bad_mark = small_page ? 5 : 0;
    nand_mtd.size = vboard_chip_size("nand");
    nand_mtd.writesize = nand_page;
    nand_mtd.writebufsize = nand_page;
    nand_mtd.erasesize = small_page ? 16 << 10 : 128 << 10;
    nand_mtd.oobsize = small_page ? 16 : 64;
    nand_mtd.oobavail = nand_mtd.oobsize / 2 - bad_mark - 1;
    mtd_set_ooblayout(&nand_mtd, &oob_layout);
    error = cells_open(&nand_cells, NAND_SLOT, nand_mtd.size + div_u64(nand_mtd.size, nand_page) * nand_mtd.oobsize,
                       true);
    if (error)
        return error;
    for (block = 0; block < nand_mtd.size; block += nand_mtd.erasesize)
        nand_mtd.ecc_stats.badblocks += nand_block_is_bad(&nand_mtd, block);
    nand_mtd.dev.parent = &nand_cells.pci->dev;
    return vboard_register_partitions(&nand_mtd, "nand");
}
