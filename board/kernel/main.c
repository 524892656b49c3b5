/*
 * The virtual board's kernel module: brings the flash chips up in the device's order, then what else it has. It stays loaded
 * until power-off.
 */
#include <linux/module.h>
#include "vboard.h"

static int __init vboard_init(void)
{
    static int (*const parts[])(void) = {
        debugfs_init, nor_init, nand_init, partition_requests_init, faults_init, journal_init,
        gpio_init, link_init, ctrl_init, rs485_init,
    };
    int error = 0;
    size_t i;

    for (i = 0; i < ARRAY_SIZE(parts) && !error; i++)
        error = parts[i]();
    if (error)
        pr_err(VBOARD_NAME ": start failed: %d\n", error);
    return error;
}
module_init(vboard_init);

MODULE_DESCRIPTION("Virtual board: serial NOR and NAND flash, partition requests, planned faults, GPIO lines, cable, "
                   "control device");
MODULE_LICENSE("GPL");
