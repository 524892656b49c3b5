/*
 * A small firmware for the virtual board: enough of one to be booted, to say which one it is, to find whether
 * it is whole, and to hand over to the recovery shell. One program, twice in an image: first process of the
 * kernel's initial RAM file system, and /sbin/init of the root file system.
 */
#pragma once

#include <stddef.h>

/* The word NAME=VALUE of the kernel command line. Copies the value and returns 1, or returns 0. */
int command_line(const char* name, char* value, size_t size);
/* The first line of a file without its end. Returns 1, or 0 when there is none. */
int first_line(const char* path, char* line, size_t size);
/* The number of the flash partition with this name, or -1. */
int flash_partition(const char* name);

/* Opens the console port ("cli_console=ttyS1,115200" on the command line) for input and output. */
void console_open(void);

/* First process: brings the flash driver, mounts the bank's root file system and becomes its first process.
 */
void boot_stage(void);
/* First process of the root file system: reports, and takes orders from the console. */
void main_stage(void);

/* Compares all files with their list; prints a line for each that differs. Returns the number that are whole,
 * or -1. */
int files_whole(void);

/* Sets bootcmd in the boot environment so that the recovery system is started, and resets the device. */
void restart_into_shell(void) __attribute__((noreturn));
void restart(void) __attribute__((noreturn));
