// Starting a program that outlives this process and is nobody's child.
#ifndef MPBP_BASE_POSIX_H_
#define MPBP_BASE_POSIX_H_

namespace mpbp {

// Starts `file` with `argv` (ends with a null, argv[0] is the name by custom) as a daemon: detached
// by a double fork, in the folder "/", with descriptors 0 to 2 only, no signal blocked or ignored,
// and with this process's environment. A `file` without '/' is searched on PATH.
//
// True when the program was detached; whether it could be executed is not known. False after a log
// line, with an errno value in *error (which may be null), 0 when the system gave no reason. Waits
// for a short-lived child, whatever the host does with SIGCHLD. From any thread. Borrows its
// arguments for the call.
[[nodiscard]] bool RunAsDaemon(const char* file, char* const argv[], int* error = nullptr);

// Has the form that it has on the systems that provide it. Calls `callback(context, fd)` for every
// open descriptor of this process but the one it uses itself; the callback may close that
// descriptor. 0 on success; -1 with errno set when the list cannot be read, EBADF when it held
// something other than a number. Async-signal-safe when the callback is.
[[nodiscard]] int fdwalk(void (*callback)(void* context, int fd), void* context);

}  // namespace mpbp

#endif  // MPBP_BASE_POSIX_H_
