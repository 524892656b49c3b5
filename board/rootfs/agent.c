/*
 * The tests' command agent: runs commands and moves files for the host, over a virtio serial port. It is no part of the
 * device.
 *
 * Either way goes a sequence of frames: a header of four little-endian words { magic, kind, value, length } and `length`
 * bytes. The host asks one thing at a time:
 *
 *   RUN   value: seconds allowed; bytes: command line     answered by any number of DATA (its output), then END (its
 *                                                          status, as a shell gives it; 124 when it was killed for time)
 *   PUT   value: file mode; bytes: path, NUL, contents     answered by END (0 or an errno)
 *   GET   bytes: path                                      answered by DATA, then END (0 or an errno)
 *
 * A HELLO is sent once at start, so that the host sees each boot of the machine.
 */
#define _GNU_SOURCE
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#define PORT_NAME "agent"
#define MAGIC 0x746e6741u
#define LENGTH_MAX (256u << 20)

enum frame_kind { HELLO = 1, RUN, PUT, GET, DATA, END };

struct frame_header {
    uint32_t magic, kind, value, length;
};

static int port;

static int write_all(int fd, const void *data, size_t length)
{
    const char *next = data;

    while (length) {
        ssize_t written = write(fd, next, length);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return -1;
        next += written;
        length -= (size_t)written;
    }
    return 0;
}

static void send_frame(uint32_t kind, uint32_t value, const void *data, size_t length)
{
    struct frame_header header = {MAGIC, kind, value, (uint32_t)length};

    if (write_all(port, &header, sizeof(header)) || write_all(port, data, length))
        exit(1);
}

/* Waits for the host when it is not there. */
static void read_all(void *data, size_t length)
{
    char *next = data;

    while (length) {
        ssize_t got = read(port, next, length);
        if (got <= 0) {
            usleep(50000);
            continue;
        }
        next += got;
        length -= (size_t)got;
    }
}

static int64_t now_ms(void)
{
    struct timespec now;

    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000LL + now.tv_nsec / 1000000;
}

static pid_t start_command(const char *command, int *output)
{
    int pipe_fds[2];
    pid_t child;

    if (pipe2(pipe_fds, O_CLOEXEC))
        return -1;
    child = fork();
    if (child == 0) {
        /* A group, to be killed as one. No session: its leader would make a port that it opens its terminal, and hang that
         * up on the shell when it ends. */
        setpgid(0, 0);
        dup2(open("/dev/null", O_RDONLY), 0);
        dup2(pipe_fds[1], 1);
        dup2(pipe_fds[1], 2);
        execl("/bin/sh", "sh", "-c", command, (char *)NULL);
        _exit(127);
    }
    close(pipe_fds[1]);
    *output = pipe_fds[0];
    fcntl(*output, F_SETFL, O_NONBLOCK);
    return child;
}

/* Passes on what there is now. Returns 0 at the end of the output. */
static int forward_output(int output)
{
    static char buffer[32768];
    ssize_t got;

    while ((got = read(output, buffer, sizeof(buffer))) > 0)
        send_frame(DATA, 0, buffer, (size_t)got);
    return got < 0;
}

/* A command is over when its shell is: what it left in the background may still hold the pipe. */
static void run(const char *command, uint32_t seconds)
{
    int64_t deadline = now_ms() + seconds * 1000LL;
    int output = -1, status = 0, timed_out = 0;
    pid_t child = start_command(command, &output);

    if (child < 0) {
        send_frame(END, 126, NULL, 0);
        return;
    }
    struct pollfd waits[2] = {{output, POLLIN, 0}, {(int)syscall(SYS_pidfd_open, child, 0), POLLIN, 0}};
    while (!(waits[1].revents & POLLIN)) {
        int64_t left = deadline - now_ms();
        if (left <= 0) {
            kill(-child, SIGKILL);
            timed_out = 1;
            break;
        }
        poll(waits, 2, (int)left);
        if (waits[0].revents && !forward_output(output))
            waits[0].fd = -1;
    }
    waitpid(child, &status, 0);
    forward_output(output);
    close(output);
    close(waits[1].fd);
    if (timed_out)
        status = 124;
    else
        status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    send_frame(END, (uint32_t)status, NULL, 0);
}

static void put(const char *path, const char *data, size_t length, mode_t mode)
{
    int error = 0, fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);

    if (fd < 0 || fchmod(fd, mode) || write_all(fd, data, length))
        error = errno;
    if (fd >= 0 && close(fd) && !error)
        error = errno;
    send_frame(END, (uint32_t)error, NULL, 0);
}

static void get(const char *path)
{
    static char buffer[65536];
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    ssize_t got = -1;

    while (fd >= 0 && (got = read(fd, buffer, sizeof(buffer))) > 0)
        send_frame(DATA, 0, buffer, (size_t)got);
    send_frame(END, got < 0 ? (uint32_t)errno : 0, NULL, 0);
    if (fd >= 0)
        close(fd);
}

static void serve(const struct frame_header *header, char *data)
{
    if (header->kind == RUN)
        run(data, header->value);
    else if (header->kind == PUT && strlen(data) < header->length)
        put(data, data + strlen(data) + 1, header->length - strlen(data) - 1, header->value);
    else if (header->kind == GET)
        get(data);
    else
        send_frame(END, EINVAL, NULL, 0);
}

/* Opens the virtio port that bears our name. Returns its descriptor or -1. */
static int open_port(void)
{
    DIR *ports = opendir("/sys/class/virtio-ports");
    struct dirent *entry;
    char path[300], name[64];
    int found = -1;

    while (ports && found < 0 && (entry = readdir(ports))) {
        snprintf(path, sizeof(path), "/sys/class/virtio-ports/%s/name", entry->d_name);
        FILE *file = fopen(path, "r");
        if (file && fgets(name, sizeof(name), file) && !strcmp(name, PORT_NAME "\n")) {
            snprintf(path, sizeof(path), "/dev/%s", entry->d_name);
            found = open(path, O_RDWR | O_CLOEXEC);
        }
        if (file)
            fclose(file);
    }
    if (ports)
        closedir(ports);
    return found;
}

int main(void)
{
    struct frame_header header;

    signal(SIGPIPE, SIG_IGN);
    while ((port = open_port()) < 0)
        usleep(20000);
    send_frame(HELLO, 0, NULL, 0);
    for (;;) {
        read_all(&header, sizeof(header));
        if (header.magic != MAGIC || header.length > LENGTH_MAX)
            exit(1);
        char *data = calloc(1, header.length + 1u);
        if (!data)
            exit(1);
        read_all(data, header.length);
        serve(&header, data);
        free(data);
    }
}
