// Sends every native message back as it came: the least that a program beside a browser can do.
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <vector>

namespace {

bool ReadAll(char* bytes, size_t size) {
  while (size > 0) {
    const ssize_t count = read(STDIN_FILENO, bytes, size);
    if (count <= 0) return false;
    bytes += count;
    size -= static_cast<size_t>(count);
  }
  return true;
}

bool WriteAll(const char* bytes, size_t size) {
  while (size > 0) {
    const ssize_t count = write(STDOUT_FILENO, bytes, size);
    if (count <= 0) return false;
    bytes += count;
    size -= static_cast<size_t>(count);
  }
  return true;
}

}  // namespace

int main() {
  std::vector<char> frame(sizeof(uint32_t));
  while (ReadAll(frame.data(), sizeof(uint32_t))) {
    uint32_t length = 0;
    memcpy(&length, frame.data(), sizeof(length));
    frame.resize(sizeof(length) + length);
    if (!ReadAll(frame.data() + sizeof(length), length)) break;
    if (!WriteAll(frame.data(), frame.size())) break;
  }
  return 0;
}
