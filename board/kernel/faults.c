/*
 * Planned faults. The file "faults" in debugfs takes one rule per line:
 *
 *   OPERATION PARTITION SKIP TIMES fail ERRNO     let SKIP operations pass, then fail TIMES of them (0: all later ones)
 *   OPERATION PARTITION SKIP TIMES delay USECS    sleep before each of them
 *   OPERATION PARTITION SKIP TIMES cut BYTES      do so much of it (0: half) and cut the power
 *   clear                                         forget all rules
 *
 * OPERATION is read, write, erase, lock or unlock. The file reads back as the rules with what is left of them; the
 * file "operations" reads as the number of operations done on each partition since power-up.
 */
#include <linux/arm-smccc.h>
#include <linux/debugfs.h>
#include <linux/delay.h>
#include <linux/list.h>
#include <linux/mutex.h>
#include <linux/seq_file.h>
#include <linux/slab.h>
#include <uapi/linux/psci.h>
#include "vboard.h"

#define RULE_LENGTH_MAX 128

enum fault_action { ACTION_FAIL, ACTION_DELAY, ACTION_CUT };

struct fault_rule {
    struct list_head node;
    enum flash_operation operation;
    struct mtd_info *master;
    char partition[32];
    u64 start, end;
    unsigned int skip, times;
    bool forever;
    enum fault_action action;
    unsigned int value;
};

static const char *const operation_names[FLASH_OPERATIONS] = {"read", "write", "erase", "lock", "unlock"};
static const char *const action_names[] = {"fail", "delay", "cut"};

static LIST_HEAD(fault_rules);
/* Of the rule that strikes last: nothing comes after it. */
static unsigned int done_before_cut;
static DEFINE_MUTEX(fault_mutex);

#define PARTITION(chip, name, kib, locked) {#chip, name, (u64)(kib) << 10},
static struct {
    const char *chip, *name;
    u64 size;
    unsigned long count[FLASH_OPERATIONS];
} operation_counts[] = {
#include "partitions.h"
};
#undef PARTITION

static void count_operation(const struct mtd_info *master, enum flash_operation operation, u64 from, u64 length)
{
    u64 start = 0;
    size_t i;

    for (i = 0; i < ARRAY_SIZE(operation_counts); i++) {
        if (strcmp(operation_counts[i].chip, master->name))
            continue;
        if (from < start + operation_counts[i].size && start < from + length)
            operation_counts[i].count[operation]++;
        start += operation_counts[i].size;
    }
}

/* True when the rule strikes this time; counts it down. */
static bool rule_strikes(struct fault_rule *rule)
{
    if (rule->skip) {
        rule->skip--;
        return false;
    }
    if (rule->forever)
        return true;
    if (!rule->times)
        return false;
    rule->times--;
    return true;
}

int faults_check(struct mtd_info *master, enum flash_operation operation, u64 from, u64 length)
{
    unsigned long sleep_usecs = 0;
    struct fault_rule *rule;
    int result = 0;

    mutex_lock(&fault_mutex);
    count_operation(master, operation, from, length);
    list_for_each_entry(rule, &fault_rules, node) {
        if (rule->operation != operation || rule->master != master)
            continue;
        if (from >= rule->end || rule->start >= from + length || !rule_strikes(rule))
            continue;
        if (rule->action == ACTION_DELAY)
            sleep_usecs += rule->value;
        else if (!result && rule->action == ACTION_CUT) {
            done_before_cut = rule->value;
            result = FAULT_CUT;
        } else if (!result)
            result = -(int)rule->value;
    }
    mutex_unlock(&fault_mutex);
    if (sleep_usecs)
        fsleep(sleep_usecs);
    return result;
}

u64 faults_done_before_cut(u64 length)
{
    return done_before_cut ? min_t(u64, done_before_cut, length) : length / 2;
}

void faults_cut_power(void)
{
    struct arm_smccc_res unused;

    for (;;)
        arm_smccc_hvc(PSCI_0_2_FN_SYSTEM_OFF, 0, 0, 0, 0, 0, 0, 0, &unused);
}

static void clear_rules(void)
{
    struct fault_rule *rule, *next;

    list_for_each_entry_safe(rule, next, &fault_rules, node) {
        list_del(&rule->node);
        kfree(rule);
    }
}

static int add_rule(const char *text)
{
    char operation[16], action[16], partition[32];
    unsigned int skip, times, value;
    struct fault_rule *rule;
    struct mtd_info *mtd;
    int operation_index, action_index;

    if (sscanf(text, "%15s %31s %u %u %15s %u", operation, partition, &skip, &times, action, &value) != 6)
        return -EINVAL;
    operation_index = match_string(operation_names, ARRAY_SIZE(operation_names), operation);
    action_index = match_string(action_names, ARRAY_SIZE(action_names), action);
    if (operation_index < 0 || action_index < 0)
        return -EINVAL;
    mtd = vboard_find_partition(-1, partition);
    if (!mtd)
        return -ENOENT;
    rule = kzalloc(sizeof(*rule), GFP_KERNEL);
    if (!rule)
        return -ENOMEM;
    rule->operation = operation_index;
    rule->action = action_index;
    rule->master = mtd_get_master(mtd);
    rule->start = mtd->part.offset;
    rule->end = mtd->part.offset + mtd->size;
    rule->skip = skip;
    rule->times = times;
    rule->forever = times == 0;
    rule->value = value;
    strscpy(rule->partition, partition, sizeof(rule->partition));
    mutex_lock(&fault_mutex);
    list_add_tail(&rule->node, &fault_rules);
    mutex_unlock(&fault_mutex);
    return 0;
}

static ssize_t faults_write(struct file *file, const char __user *data, size_t length, loff_t *position)
{
    char text[RULE_LENGTH_MAX];
    int error = fetch_text(text, sizeof(text), data, length);

    if (error)
        return error;
    if (sysfs_streq(text, "clear")) {
        mutex_lock(&fault_mutex);
        clear_rules();
        mutex_unlock(&fault_mutex);
        return length;
    }
    error = add_rule(text);
    return error ? error : length;
}

static int faults_show(struct seq_file *out, void *unused)
{
    struct fault_rule *rule;

    mutex_lock(&fault_mutex);
    list_for_each_entry(rule, &fault_rules, node)
        seq_printf(out, "%s %s %u %u %s %u\n", operation_names[rule->operation], rule->partition, rule->skip,
                   rule->times, action_names[rule->action], rule->value);
    mutex_unlock(&fault_mutex);
    return 0;
}

static int faults_open(struct inode *inode, struct file *file)
{
    return single_open(file, faults_show, NULL);
}

static const struct file_operations faults_operations = {
    .owner = THIS_MODULE,
    .open = faults_open,
    .read = seq_read,
    .write = faults_write,
    .llseek = seq_lseek,
    .release = single_release,
};

static int operations_show(struct seq_file *out, void *unused)
{
    size_t i;
    int operation;

    mutex_lock(&fault_mutex);
    for (i = 0; i < ARRAY_SIZE(operation_counts); i++) {
        seq_puts(out, operation_counts[i].name);
        for (operation = 0; operation < FLASH_OPERATIONS; operation++)
            seq_printf(out, " %s=%lu", operation_names[operation], operation_counts[i].count[operation]);
        seq_putc(out, '\n');
    }
    mutex_unlock(&fault_mutex);
    return 0;
}
DEFINE_SHOW_ATTRIBUTE(operations);

int faults_init(void)
{
    debugfs_create_file("faults", 0600, vboard_debugfs, NULL, &faults_operations);
    debugfs_create_file("operations", 0400, vboard_debugfs, NULL, &operations_fops);
    return 0;
}
