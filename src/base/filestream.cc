#include "base/filestream.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <string_view>

#include "base/uniquefd.h"

namespace mpbp {
namespace {

// -1 for a mode that is not supported.
int OpenFlags(std::string_view mode) {
  if (mode.size() == 2 && mode[1] == 'b') mode.remove_suffix(1);
  if (mode == "r") return O_RDONLY;
  if (mode == "w") return O_WRONLY | O_CREAT | O_TRUNC | O_APPEND;
  if (mode == "a") return O_WRONLY | O_CREAT | O_APPEND;
  return -1;
}

bool IsSafeToUse(const struct stat& status, int flags) {
  if (S_ISREG(status.st_mode)) return true;
  return (flags & O_ACCMODE) == O_RDONLY ? S_ISDIR(status.st_mode) : S_ISCHR(status.st_mode);
}

// None, with an errno value in *error, when it cannot be opened. Non-blocking: a FIFO would
// otherwise keep the open waiting for its other end, and a device its writers.
UniqueFd OpenDescriptor(const std::string& path, int flags, int* error) {
  UniqueFd fd(open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0600));
  struct stat status = {};
  if (!fd || fstat(fd.get(), &status) != 0) {
    *error = errno;
    return {};
  }
  if (IsSafeToUse(status, flags)) return fd;
  *error = ENXIO;
  return {};
}

StreamResult Fail(int code, int* error) {
  if (error) *error = code;
  return StreamResult::SR_ERROR;
}

}  // namespace

bool FileStream::Open(const std::string& path, const char* mode, int* error) {
  Close();
  int failure = EINVAL;
  const int flags = OpenFlags(mode);
  if (flags >= 0) {
    UniqueFd fd = OpenDescriptor(path, flags, &failure);
    if (fd) {
      file_.reset(fdopen(fd.get(), mode));
      failure = errno;
    }
    if (file_) {
      static_cast<void>(fd.Release());  // the file's own now
      return true;
    }
  }
  if (error) *error = failure;
  return false;
}

bool FileStream::OpenShare(const std::string& path, const char* mode, int /*share_flags*/,
                           int* error) {
  return Open(path, mode, error);
}

bool FileStream::DisableBuffering() {
  return file_ && setvbuf(file_.get(), nullptr, _IONBF, 0) == 0;
}

StreamResult FileStream::Read(void* buffer, size_t length, size_t* read, int* error) {
  if (read) *read = 0;
  if (!file_) return Fail(EBADF, error);
  if (length == 0) return StreamResult::SR_SUCCESS;
  errno = 0;
  const size_t count = fread(buffer, 1, length, file_.get());
  if (read) *read = count;
  if (count > 0) return StreamResult::SR_SUCCESS;
  return ferror(file_.get()) ? Fail(errno, error) : StreamResult::SR_EOS;
}

StreamResult FileStream::Write(const void* data, size_t length, size_t* written, int* error) {
  if (written) *written = 0;
  if (!file_) return Fail(EBADF, error);
  errno = 0;
  const size_t count = fwrite(data, 1, length, file_.get());
  if (written) *written = count;
  return count > 0 || length == 0 ? StreamResult::SR_SUCCESS : Fail(errno, error);
}

StreamResult FileStream::ReadLine(std::string* line, int* error) {
  line->clear();
  if (!file_) return Fail(EBADF, error);
  errno = 0;
  for (int c = getc(file_.get()); c != '\n'; c = getc(file_.get())) {
    if (c == EOF) {
      if (ferror(file_.get())) return Fail(errno, error);
      return line->empty() ? StreamResult::SR_EOS : StreamResult::SR_SUCCESS;
    }
    if (line->size() == kMaxLineLength) return Fail(EFBIG, error);
    line->push_back(static_cast<char>(c));
  }
  return StreamResult::SR_SUCCESS;
}

bool FileStream::Flush(int* error) {
  if (file_ && fflush(file_.get()) == 0) return true;
  if (error) *error = file_ ? errno : EBADF;
  return false;
}

bool FileStream::GetSize(size_t* size) {
  struct stat status = {};
  if (!Flush() || fstat(fileno(file_.get()), &status) != 0) return false;
  *size = static_cast<size_t>(status.st_size);
  return true;
}

void FileStream::Close() { file_.reset(); }

std::string ReadFileText(const std::string& path, size_t max_bytes) {
  std::string text;
  FileStream file;
  if (!file.Open(path, "r", nullptr)) return text;
  char block[4096];
  size_t read = 0;
  while (text.size() < max_bytes &&
         file.Read(block, std::min(sizeof(block), max_bytes - text.size()), &read, nullptr) ==
             StreamResult::SR_SUCCESS) {
    text.append(block, read);
  }
  return text;
}

}  // namespace mpbp
