/*
 * The network cable. The emulated card always reports a link; while the file "unplugged" in debugfs reads Y (write 1 or
 * 0), its driver is told that there is none. The driver looks every two seconds, and whenever it is asked.
 */
#include <linux/debugfs.h>
#include <linux/mii.h>
#include "vboard.h"

static bool unplugged;

/* Stands in for mii_link_ok(), so it has its argument. */
static noinline int no_link(struct mii_if_info *card)
{
    return 0;
}

static int redirect(struct kprobe *probe, struct pt_regs *registers)
{
    if (!READ_ONCE(unplugged))
        return 0;
    instruction_pointer_set(registers, (unsigned long)no_link);
    return 1;
}

static struct kprobe link_probe = {
    .symbol_name = "mii_link_ok", .pre_handler = redirect, .post_handler = keep_breakpoint,
};

int link_init(void)
{
    debugfs_create_bool("unplugged", 0600, vboard_debugfs, &unplugged);
    return register_kprobe(&link_probe);
}
