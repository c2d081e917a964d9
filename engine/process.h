// What the engine arranges about its own process. The plug-in starts it with the browser's session,
// process group and standard streams.
#ifndef MPBP_ENGINE_PROCESS_H_
#define MPBP_ENGINE_PROCESS_H_

#include <cstddef>
#include <string>

namespace mpbp::engine {

// Opens /dev/null for each standard stream that is closed, so that no other file gets its number.
void FillStandardStreams();

// Into a session of its own, away from the terminal. A process that leads its group cannot leave;
// that is one that a shell started, and it stays where it is.
void LeaveSession();

// Puts /dev/null in the place of the standard streams: whoever reads what the starter writes would
// otherwise wait for this process too. When that is not possible they stay, with an error line.
void LetGoOfStandardStreams();

// Begins the log file anew, readable for the user alone. Without it the process goes on, with an
// error line.
void OpenLogFile(const std::string& path);

// How many clients the process has descriptors for, at least 1. Raises the limit first, up to what
// the system allows and select can watch.
size_t MakeRoomForClients();

}  // namespace mpbp::engine

#endif  // MPBP_ENGINE_PROCESS_H_
