/* The files of a fresh device root. */
#ifndef SKELETON_H
#define SKELETON_H

/* What the harness itself keeps in a root. */
#define ANSWERS_DIRECTORY "/.harness/answers"
#define BAD_BLOCKS_FILE "/.harness/bad_blocks"
#define CONTROL_FILE "/.harness/control"
#define ENV_FILE "/.harness/env"
#define EVENT_LOG_FILE "/.harness/log"
#define EVENT_LOG_LIMIT (16 << 20) /* bytes: a program that runs wild must not fill the host */

#ifdef __cplusplus
extern "C" {
#endif

/* Makes the device's paths below `root` ("" when inside it): directories, tools (links to the recording
 * tool), /proc/mtd and a sparse node file per partition, /proc/cmdline, the boot environment, an empty event
 * log, a control page without rules. What exists is replaced; a message and exit status 1 when the host
 * refuses. */
void skeleton_make(const char* root);

/* Takes away everything skeleton_make and a test may have put below `root`; mount points stay. */
void skeleton_wipe(const char* root);

#ifdef __cplusplus
}
#endif

#endif
