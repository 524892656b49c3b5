/*
 * The board's control device, /dev/ctrl: switches rails and reset lines, tells whether the reset input is active and
 * sets what pins are used for. Nothing hangs on any of them here, so what was asked for is noted, to the byte. In
 * debugfs, under "ctrl":
 *
 *   log          reads as one line for each thing that happened; writing "clear" forgets them:
 *                  TIME open MODE                                          MODE: r, w or rw
 *                  TIME REQUEST DIRECTION TYPE NUMBER SIZE DATA RESULT     RESULT: 0 or a negative errno
 *                  TIME close
 *                TIME is in microseconds; REQUEST and TYPE are hexadecimal. DATA is, in hexadecimal, the bytes that
 *                were fetched or stored, "-" when there were none to store, and 0x... the argument itself where it is
 *                all that came: with a request without data, or when it points nowhere.
 *   failures     "REQUEST ERRNO" makes all later requests of that number fail, and do nothing; "clear" forgets them
 *   reset_input  the status of the reset input: 0 while nobody pushes the button
 */
#include <linux/debugfs.h>
#include <linux/ioctl.h>
#include <linux/ktime.h>
#include <linux/miscdevice.h>
#include <linux/module.h>
#include <linux/mutex.h>
#include <linux/seq_file.h>
#include <linux/uaccess.h>
#include "vboard.h"

#define URST_DISABLE _IO('L', 1)
#define URST_ENABLE _IO('L', 2)
#define URST_STATUS _IOR('L', 3, u32)
#define ERST_ASSERT _IO('L', 4)
#define ETH_POWERDOWN _IO('L', 5)
#define ETH_POWERUP _IO('L', 6)
#define WL_POWERDOWN _IO('L', 7)
#define WL_POWERUP _IO('L', 8)
#define PIN_MODE _IOW('L', 10, u8[20])

#define EVENTS_MAX 512
#define DATA_MAX 32
#define FAILURES_MAX 16

static struct {
    u64 time;
    char text[128];
} events[EVENTS_MAX];
static unsigned int event_count, events_dropped;

static struct {
    unsigned int request, error;
} failures[FAILURES_MAX];
static unsigned int failure_count;

static u32 reset_input;
static DEFINE_MUTEX(ctrl_mutex);

/* With the mutex held. */
static __printf(1, 2) void note(const char *format, ...)
{
    va_list arguments;

    if (event_count == EVENTS_MAX) {
        events_dropped++;
        return;
    }
    events[event_count].time = ktime_to_us(ktime_get());
    va_start(arguments, format);
    vsnprintf(events[event_count].text, sizeof(events[event_count].text), format, arguments);
    va_end(arguments);
    event_count++;
}

static void note_request(unsigned int request, const char *data, long result)
{
    static const char *const directions[] = {
        [_IOC_NONE] = "none", [_IOC_WRITE] = "write", [_IOC_READ] = "read", [_IOC_READ | _IOC_WRITE] = "readwrite",
    };

    note("%08x %s %02x %u %u %s %ld", request, directions[_IOC_DIR(request)], _IOC_TYPE(request), _IOC_NR(request),
         _IOC_SIZE(request), data, result);
}

static long planned_failure(unsigned int request)
{
    unsigned int i;

    for (i = 0; i < failure_count; i++)
        if (failures[i].request == request)
            return -(long)failures[i].error;
    return 0;
}

static bool is_known(unsigned int request)
{
    switch (request) {
    case URST_DISABLE:
    case URST_ENABLE:
    case URST_STATUS:
    case ERST_ASSERT:
    case ETH_POWERDOWN:
    case ETH_POWERUP:
    case WL_POWERDOWN:
    case WL_POWERUP:
    case PIN_MODE:
        return true;
    default:
        return false;
    }
}

/* Moves what the request carries; `text` becomes its bytes, or the argument when that points nowhere. */
static long move_data(unsigned int request, unsigned long argument, char *text, size_t size)
{
    size_t length = min_t(size_t, _IOC_SIZE(request), DATA_MAX);
    unsigned int direction = _IOC_DIR(request);
    void __user *place = (void __user *)argument;
    u8 data[DATA_MAX];
    size_t unmoved;

    if (direction & _IOC_WRITE) {
        unmoved = copy_from_user(data, place, length);
    } else {
        memcpy(data, &reset_input, sizeof(reset_input));
        unmoved = copy_to_user(place, data, length);
    }
    if (unmoved) {
        snprintf(text, size, "0x%lx", argument);
        return -EFAULT;
    }
    snprintf(text, size, "%*phN", (int)length, data);
    return 0;
}

/* Requests are noted before they are judged: also what no driver would understand is seen. */
static long ctrl_request(struct file *file, unsigned int request, unsigned long argument)
{
    char text[2 * DATA_MAX + 1] = "-";
    long result, moved = 0;

    mutex_lock(&ctrl_mutex);
    result = is_known(request) ? planned_failure(request) : -ENOTTY;
    if (_IOC_DIR(request) == _IOC_NONE)
        snprintf(text, sizeof(text), "0x%lx", argument);
    else if (_IOC_SIZE(request) && (_IOC_DIR(request) & _IOC_WRITE || !result))
        moved = move_data(request, argument, text, sizeof(text));
    if (!result)
        result = moved;
    note_request(request, text, result);
    mutex_unlock(&ctrl_mutex);
    return result;
}

static int ctrl_open(struct inode *inode, struct file *file)
{
    mutex_lock(&ctrl_mutex);
    note("open %s%s", file->f_mode & FMODE_READ ? "r" : "", file->f_mode & FMODE_WRITE ? "w" : "");
    mutex_unlock(&ctrl_mutex);
    return 0;
}

static int ctrl_release(struct inode *inode, struct file *file)
{
    mutex_lock(&ctrl_mutex);
    note("close");
    mutex_unlock(&ctrl_mutex);
    return 0;
}

static const struct file_operations ctrl_operations = {
    .owner = THIS_MODULE,
    .open = ctrl_open,
    .unlocked_ioctl = ctrl_request,
    .release = ctrl_release,
    .llseek = noop_llseek,
};

static struct miscdevice ctrl_device = {
    .minor = MISC_DYNAMIC_MINOR,
    .name = "ctrl",
    .fops = &ctrl_operations,
    .mode = 0600,
};

static int log_show(struct seq_file *out, void *unused)
{
    unsigned int i;

    mutex_lock(&ctrl_mutex);
    for (i = 0; i < event_count; i++)
        seq_printf(out, "%llu %s\n", events[i].time, events[i].text);
    if (events_dropped)
        seq_printf(out, "%llu and %u more\n", events[EVENTS_MAX - 1].time, events_dropped);
    mutex_unlock(&ctrl_mutex);
    return 0;
}

static int log_open(struct inode *inode, struct file *file)
{
    return single_open(file, log_show, NULL);
}

static ssize_t log_write(struct file *file, const char __user *data, size_t length, loff_t *position)
{
    char text[16];
    int error = fetch_text(text, sizeof(text), data, length);

    if (error)
        return error;
    if (!sysfs_streq(text, "clear"))
        return -EINVAL;
    mutex_lock(&ctrl_mutex);
    event_count = events_dropped = 0;
    mutex_unlock(&ctrl_mutex);
    return length;
}

static const struct file_operations log_operations = {
    .owner = THIS_MODULE,
    .open = log_open,
    .read = seq_read,
    .write = log_write,
    .llseek = seq_lseek,
    .release = single_release,
};

static int plan_failure(unsigned int request, unsigned int error)
{
    int result = -ENOSPC;

    if (!error || error > MAX_ERRNO)
        return -EINVAL;
    mutex_lock(&ctrl_mutex);
    if (failure_count < FAILURES_MAX) {
        failures[failure_count].request = request;
        failures[failure_count++].error = error;
        result = 0;
    }
    mutex_unlock(&ctrl_mutex);
    return result;
}

static ssize_t failures_write(struct file *file, const char __user *data, size_t length, loff_t *position)
{
    unsigned int request, error_number;
    char text[32];
    int error = fetch_text(text, sizeof(text), data, length);

    if (error)
        return error;
    if (sysfs_streq(text, "clear")) {
        mutex_lock(&ctrl_mutex);
        failure_count = 0;
        mutex_unlock(&ctrl_mutex);
        return length;
    }
    if (sscanf(text, "%x %u", &request, &error_number) != 2)
        return -EINVAL;
    error = plan_failure(request, error_number);
    return error ? error : length;
}

static const struct file_operations failures_operations = {
    .owner = THIS_MODULE,
    .write = failures_write,
    .llseek = noop_llseek,
};

int ctrl_init(void)
{
    struct dentry *directory = debugfs_create_dir("ctrl", vboard_debugfs);

    debugfs_create_file("log", 0600, directory, NULL, &log_operations);
    debugfs_create_file("failures", 0200, directory, NULL, &failures_operations);
    debugfs_create_u32("reset_input", 0600, directory, &reset_input);
    return misc_register(&ctrl_device);
}
