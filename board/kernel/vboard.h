/*
 * The virtual board's kernel module: what its files share. Each flash chip keeps its cells in a PCI shared-memory
 * window, that is in a file of the host; faults are planned in debugfs and asked for by the chips' operations.
 */
#pragma once

#include <linux/kprobes.h>
#include <linux/mtd/mtd.h>
#include <linux/pci.h>
#include <linux/types.h>

#define VBOARD_NAME "vboard"

/* The directory in debugfs for what tests want to see or set. */
extern struct dentry *vboard_debugfs;
int debugfs_init(void);
/* Fetches what was written into a file, as text. Returns 0, -EINVAL when it does not fit, or -EFAULT. */
int fetch_text(char *text, size_t size, const char __user *data, size_t length);

/* Cells of one chip. `flip` has all bits set when the file holds them inverted: erased flash is then a hole on the host. */
struct flash_cells {
    struct pci_dev *pci;
    u8 *base;
    u64 size;
    u32 flip;
};

/* Maps the window of the device in this PCI slot, at least `size` bytes long. Returns 0 or a negative error. */
int cells_open(struct flash_cells *cells, unsigned int slot, u64 size, bool inverted);
void cells_read(const struct flash_cells *cells, u64 from, void *buffer, size_t length);
/* Programs: bits can only go from 1 to 0. */
void cells_program(struct flash_cells *cells, u64 to, const void *buffer, size_t length);
void cells_erase(struct flash_cells *cells, u64 from, u64 length);

enum flash_operation { FLASH_READ, FLASH_WRITE, FLASH_ERASE, FLASH_LOCK, FLASH_UNLOCK, FLASH_OPERATIONS };

/* What a planned fault makes of an operation, besides 0 (nothing) and a negative error (fail with it, nothing done). */
#define FAULT_CUT 1

/*
 * Counts the operation on [from, from + length) of this chip, sleeps for as long as planned delays say, and answers 0,
 * a negative error, or FAULT_CUT: do as many bytes of it as faults_done_before_cut() says, then call faults_cut_power().
 */
int faults_check(struct mtd_info *master, enum flash_operation operation, u64 from, u64 length);
u64 faults_done_before_cut(u64 length);
/* Ends the machine at once, as pulling its plug would. Does not return. */
void faults_cut_power(void);
int faults_init(void);

/*
 * Notes an operation of a chip that is about to change its cells or locks, if the journal is on. `data`: what is written,
 * `size` bytes, or null. `spare`: spare bytes are written with it. Called with the chip's own lock held.
 */
void journal_note(const struct mtd_info *master, enum flash_operation operation, u64 address, u64 size, const void *data,
                  bool spare);
int journal_init(void);

int nor_init(void);
/* In the geometry that the parameter nand_page says. */
int nand_init(void);

/* Registers a chip with the rows of partitions.h that are its own. */
int vboard_register_partitions(struct mtd_info *master, const char *chip);
/* The end of the last partition of this chip, in bytes: the chip's size. */
u64 vboard_chip_size(const char *chip);
/* Calls `visit` for each power-up locked partition of the chip. */
void vboard_each_locked(const char *chip, void (*visit)(u64 offset, u64 size));
/* Finds a present partition by its kernel number or its name on either chip; the first one wins. Null when none is. */
struct mtd_info *vboard_find_partition(int number, const char *name);

/*
 * For a probe that sends its caller elsewhere. A probe without a post-handler is made a jump by this kernel, and the way
 * back from that ignores a changed program counter.
 */
static inline void keep_breakpoint(struct kprobe *probe, struct pt_regs *registers, unsigned long flags)
{
}

int partition_requests_init(void);
int gpio_init(void);
int link_init(void);
int ctrl_init(void);
int rs485_init(void);
