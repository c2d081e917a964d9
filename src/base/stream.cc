#include "base/stream.h"

namespace mpbp {

StreamResult StreamInterface::WriteAll(std::string_view data, size_t* written, int* error) {
  size_t done = 0;
  StreamResult result = StreamResult::SR_SUCCESS;
  while (done < data.size()) {
    size_t count = 0;
    result = Write(data.data() + done, data.size() - done, &count, error);
    if (result != StreamResult::SR_SUCCESS) break;
    done += count;
  }
  if (written) *written = done;
  return result;
}

StreamResult StreamInterface::ReadAll(void* buffer, size_t length, size_t* read, int* error) {
  size_t done = 0;
  StreamResult result = StreamResult::SR_SUCCESS;
  while (done < length) {
    size_t count = 0;
    result = Read(static_cast<char*>(buffer) + done, length - done, &count, error);
    if (result != StreamResult::SR_SUCCESS) break;
    done += count;
  }
  if (read) *read = done;
  return result;
}

}  // namespace mpbp
