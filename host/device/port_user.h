// Who else uses a terminal device: asked of the kernel and of the processes' descriptors under /proc.
#pragma once

#include <string>

/// Takes the open terminal `fd` at `path` for us alone: flock(2), TIOCEXCL. A process that holds either lock,
/// one that a lock file /var/lock/LCK..NAME names, or, where `alone` is asked for, one that merely has the
/// device open, keeps us out. Result: an empty text, or who is in the way: "minicom (PID 4711)".
std::string port_user_keep_out(int fd, const std::string& path, bool alone);
