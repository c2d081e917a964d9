// What is posted to a queue.
#ifndef MPBP_BASE_MESSAGE_H_
#define MPBP_BASE_MESSAGE_H_

#include <cstdint>
#include <memory>
#include <utility>

namespace mpbp {

class MessageHandler;

// Base of message payloads.
class MessageData {
 public:
  MessageData() = default;
  MessageData(const MessageData&) = delete;
  MessageData& operator=(const MessageData&) = delete;
  virtual ~MessageData() = default;
};

// Carries an object to the queue's thread to be deleted there.
template <typename T>
class DisposeData : public MessageData {
 public:
  explicit DisposeData(std::unique_ptr<T> object) : object_(std::move(object)) {}

 private:
  std::unique_ptr<T> object_;
};

inline constexpr uint32_t MQID_ANY = 0xFFFFFFFF;      // matches every id in Clear
inline constexpr uint32_t MQID_DISPOSE = 0xFFFFFFFE;  // only carries data to be deleted

struct Message {
  MessageHandler* handler = nullptr;  // borrowed; a handler that goes takes its messages along
  uint32_t message_id = 0;
  std::unique_ptr<MessageData> data;
  uint32_t ts_sensitive = 0;  // Time() after which delivery is late; 0: not time-sensitive

  bool Matches(const MessageHandler* wanted, uint32_t id) const {
    return (!wanted || wanted == handler) && (id == MQID_ANY || id == message_id);
  }
};

}  // namespace mpbp

#endif  // MPBP_BASE_MESSAGE_H_
