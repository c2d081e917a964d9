#ifndef MPBP_BASE_MESSAGEHANDLER_H_
#define MPBP_BASE_MESSAGEHANDLER_H_

#include "base/message.h"

namespace mpbp {

// Receives messages on the thread of the queue they were posted to. Its destructor removes what is
// still pending for it from every queue; destroy it on that thread, or with nothing posted.
class MessageHandler {
 public:
  MessageHandler(const MessageHandler&) = delete;
  MessageHandler& operator=(const MessageHandler&) = delete;
  virtual ~MessageHandler();

  // May post, clear, and delete any handler, this one included.
  virtual void OnMessage(Message* message) = 0;

 protected:
  MessageHandler() = default;
};

}  // namespace mpbp

#endif  // MPBP_BASE_MESSAGEHANDLER_H_
