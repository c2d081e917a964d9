// A file as a byte stream.
#ifndef MPBP_BASE_FILESTREAM_H_
#define MPBP_BASE_FILESTREAM_H_

#include <cstdio>
#include <memory>
#include <string>

#include "base/stream.h"

namespace mpbp {

// Opens what can never make the caller wait: a regular file, or, for writing only, a character
// device such as /dev/null (not a FIFO, a socket or a disk). A directory opens for reading, as
// fopen has it, and every read of it fails with EISDIR. The descriptor is close-on-exec.
class FileStream : public StreamInterface {
 public:
  // The longest line ReadLine gives, in bytes.
  static constexpr size_t kMaxLineLength = 1'048'576;

  FileStream() = default;

  // `mode` is "r", "w" or "a" in fopen's sense, with an optional "b". Every write goes to the end
  // of the file, so that processes that share a log do not write over each other's lines. A file
  // that was open is closed first. On failure *error, which may be null, is an errno value: EINVAL
  // for any other mode, ENXIO for a kind of file that is refused.
  [[nodiscard]] bool Open(const std::string& path, const char* mode, int* error);
  // Open with sharing flags. No file is locked against other openers here, whatever they say.
  [[nodiscard]] bool OpenShare(const std::string& path, const char* mode, int share_flags,
                               int* error);
  // Every write reaches the system before it returns. Call it right after Open.
  [[nodiscard]] bool DisableBuffering();

  // On a closed stream these fail with EBADF.
  [[nodiscard]] StreamResult Read(void* buffer, size_t length, size_t* read, int* error) override;
  // Success may only mean that the bytes are buffered: Flush says whether the system took them.
  [[nodiscard]] StreamResult Write(const void* data, size_t length, size_t* written,
                                   int* error) override;
  // Reads a line; its line feed is taken off. A last line without one counts, SR_EOS comes after
  // it. SR_ERROR when the read fails, and with EFBIG when the line is longer than kMaxLineLength.
  [[nodiscard]] StreamResult ReadLine(std::string* line, int* error = nullptr);
  // Hands the buffered bytes to the system; false, with an errno value in *error (which may be
  // null), when it does not take them.
  [[nodiscard]] bool Flush(int* error = nullptr);
  // Size in bytes, buffered ones included.
  [[nodiscard]] bool GetSize(size_t* size);
  void Close() override;

 private:
  struct Closer {
    // Who needs to know whether the last bytes were written calls Flush first.
    void operator()(FILE* file) const { static_cast<void>(fclose(file)); }
  };

  std::unique_ptr<FILE, Closer> file_;
};

// The first `max_bytes` of a file, or what it has of them; empty when it cannot be read.
[[nodiscard]] std::string ReadFileText(const std::string& path, size_t max_bytes);

}  // namespace mpbp

#endif  // MPBP_BASE_FILESTREAM_H_
