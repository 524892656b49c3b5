/*
 * The module's directory in debugfs, and text that was written into a file there.
 */
#include <linux/debugfs.h>
#include <linux/uaccess.h>
#include "vboard.h"

struct dentry *vboard_debugfs;

int fetch_text(char *text, size_t size, const char __user *data, size_t length)
{
    if (length >= size)
        return -EINVAL;
    if (copy_from_user(text, data, length))
        return -EFAULT;
    text[length] = '\0';
    return 0;
}

int debugfs_init(void)
{
    vboard_debugfs = debugfs_create_dir(VBOARD_NAME, NULL);
    return 0;
}
