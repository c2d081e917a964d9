// The port file: where the engine listens and the cookie that opens it. The engine writes the file
// when it begins to listen and deletes it when it stops.
//
//   offset  size  field
//   0       4     port, 32-bit signed, in the host's byte order
//   4       16    cookie, raw bytes
//
// Port 5000 with the cookie "0123456789abcdef" on a little-endian machine:
//
//   88 13 00 00  30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66
//
// What follows is ignored. The frames on the socket are big-endian; the port here is not.
#ifndef MPBP_PORTFILEUTILS_H_
#define MPBP_PORTFILEUTILS_H_

#include <cstddef>
#include <memory>
#include <string>

#include "base/filestream.h"
#include "base/pathname.h"

namespace mpbp {

inline constexpr int kPluginPortFile = 1;  // the kind; every other one is the web socket's
inline constexpr char kPluginPortFileName[] = "murmelparlplugin_port";
inline constexpr char kWebSocketPortFileName[] = "murmelparlplugin_ws_port";
inline constexpr size_t kPortFilePortSize = 4;
inline constexpr size_t kPortFileCookieSize = 16;

// The path in the per-user application data folder, which is created if missing. Empty when there
// is no such folder.
[[nodiscard]] Pathname GetPortFilePath(int kind);

// Gives the file's port, whatever number it is, and its 16 cookie bytes. False when the file cannot
// be opened (without a log line) or is too short (with one); then neither value may be relied on.
[[nodiscard]] bool ReadPortFile(const std::string& path, int* port, std::string* cookie);

// Replaces the port file by a new one with mode 0600, in a folder that is created with mode 0755 if
// missing. The whole cookie is written, whatever its length. The caller holds the stream for as
// long as the file is to exist, and closes it before DeletePortFile. Null on failure, which is
// logged.
[[nodiscard]] std::unique_ptr<FileStream> WritePortFile(const std::string& path, int port,
                                                        const std::string& cookie);

// True when the file is gone or there was none; only a regular file is deleted.
[[nodiscard]] bool DeletePortFile(const std::string& path);

}  // namespace mpbp

#endif  // MPBP_PORTFILEUTILS_H_
