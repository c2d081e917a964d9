// The interface of byte streams.
#ifndef MPBP_BASE_STREAM_H_
#define MPBP_BASE_STREAM_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace mpbp {

enum class StreamResult {
  SR_SUCCESS,  // some bytes were read or written
  SR_EOS,      // nothing more to read
  SR_ERROR,    // *error says why, as an errno value
};

// A stream is used by one thread at a time; whoever shares one serialises the calls.
class StreamInterface {
 public:
  StreamInterface(const StreamInterface&) = delete;
  StreamInterface& operator=(const StreamInterface&) = delete;
  virtual ~StreamInterface() = default;

  // Reads up to `length` bytes. On SR_SUCCESS *read is at least 1 (0 only when length is 0);
  // otherwise it is 0. `error` may be null.
  [[nodiscard]] virtual StreamResult Read(void* buffer, size_t length, size_t* read,
                                          int* error) = 0;
  // Writes up to `length` bytes; on SR_SUCCESS *written says how many. `error` may be null.
  [[nodiscard]] virtual StreamResult Write(const void* data, size_t length, size_t* written,
                                           int* error) = 0;
  // Releases what lies behind the stream. Closing twice is harmless.
  virtual void Close() = 0;

  // Writes until everything is written (SR_SUCCESS) or the stream fails. `written` and `error` may
  // be null; *written counts what went out in either case.
  [[nodiscard]] StreamResult WriteAll(std::string_view data, size_t* written = nullptr,
                                      int* error = nullptr);
  // Reads until `length` bytes are there (SR_SUCCESS), the stream ends or fails. *read counts what
  // arrived in every case. `read` and `error` may be null.
  [[nodiscard]] StreamResult ReadAll(void* buffer, size_t length, size_t* read = nullptr,
                                     int* error = nullptr);

 protected:
  StreamInterface() = default;
};

}  // namespace mpbp

#endif  // MPBP_BASE_STREAM_H_
