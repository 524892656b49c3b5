/*
 * The board's GPIO lines, 32 to 159, as one chip: real lines for /sys/class/gpio. A line keeps its direction and level
 * when it is given back. The file "gpio" in debugfs reads as one row per line:
 *
 *   NUMBER in|out LEVEL free|held DRIVEN     LEVEL as on the wire, DRIVEN: how often the kernel has set a level
 *
 * Writing "NUMBER LEVEL" wires a level to a line from outside, which it shows as long as it is an input. Lines that
 * nothing is wired to are pulled up.
 */
#include <linux/bitmap.h>
#include <linux/debugfs.h>
#include <linux/gpio/driver.h>
#include <linux/module.h>
#include <linux/seq_file.h>
#include <linux/spinlock.h>
#include "vboard.h"

#define GPIO_FIRST 32
#define GPIO_LINES 128

static DECLARE_BITMAP(held, GPIO_LINES);
static DECLARE_BITMAP(outputs, GPIO_LINES);
static DECLARE_BITMAP(driven_levels, GPIO_LINES);
static DECLARE_BITMAP(outside_levels, GPIO_LINES);
static unsigned long driven_count[GPIO_LINES];
static DEFINE_SPINLOCK(gpio_lock);

static int line_request(struct gpio_chip *chip, unsigned int line)
{
    set_bit(line, held);
    return 0;
}

static void line_free(struct gpio_chip *chip, unsigned int line)
{
    clear_bit(line, held);
}

static int line_get_direction(struct gpio_chip *chip, unsigned int line)
{
    return test_bit(line, outputs) ? GPIO_LINE_DIRECTION_OUT : GPIO_LINE_DIRECTION_IN;
}

static int line_get(struct gpio_chip *chip, unsigned int line)
{
    return test_bit(line, test_bit(line, outputs) ? driven_levels : outside_levels);
}

static void line_set(struct gpio_chip *chip, unsigned int line, int level)
{
    unsigned long flags;

    spin_lock_irqsave(&gpio_lock, flags);
    __assign_bit(line, driven_levels, level);
    driven_count[line]++;
    spin_unlock_irqrestore(&gpio_lock, flags);
}

static int line_direction_input(struct gpio_chip *chip, unsigned int line)
{
    clear_bit(line, outputs);
    return 0;
}

/* The level comes first, so that the line never shows another. */
static int line_direction_output(struct gpio_chip *chip, unsigned int line, int level)
{
    line_set(chip, line, level);
    set_bit(line, outputs);
    return 0;
}

static struct gpio_chip board_lines = {
    .label = VBOARD_NAME,
    .owner = THIS_MODULE,
    .base = GPIO_FIRST,
    .ngpio = GPIO_LINES,
    .request = line_request,
    .free = line_free,
    .get_direction = line_get_direction,
    .direction_input = line_direction_input,
    .direction_output = line_direction_output,
    .get = line_get,
    .set = line_set,
};

static int gpio_show(struct seq_file *out, void *unused)
{
    unsigned int line;

    for (line = 0; line < GPIO_LINES; line++)
        seq_printf(out, "%u %s %d %s %lu\n", GPIO_FIRST + line, test_bit(line, outputs) ? "out" : "in",
                   line_get(&board_lines, line), test_bit(line, held) ? "held" : "free", driven_count[line]);
    return 0;
}

static int gpio_open(struct inode *inode, struct file *file)
{
    return single_open(file, gpio_show, NULL);
}

static ssize_t gpio_write(struct file *file, const char __user *data, size_t length, loff_t *position)
{
    unsigned int number, level;
    char text[16];
    int error = fetch_text(text, sizeof(text), data, length);

    if (error)
        return error;
    if (sscanf(text, "%u %u", &number, &level) != 2 || level > 1)
        return -EINVAL;
    if (number < GPIO_FIRST || number >= GPIO_FIRST + GPIO_LINES)
        return -EINVAL;
    assign_bit(number - GPIO_FIRST, outside_levels, level);
    return length;
}

static const struct file_operations gpio_operations = {
    .owner = THIS_MODULE,
    .open = gpio_open,
    .read = seq_read,
    .write = gpio_write,
    .llseek = seq_lseek,
    .release = single_release,
};

int gpio_init(void)
{
    bitmap_fill(outside_levels, GPIO_LINES);
    debugfs_create_file("gpio", 0600, vboard_debugfs, NULL, &gpio_operations);
    return gpiochip_add_data(&board_lines, NULL);
}
