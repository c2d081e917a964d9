// The connector's standard streams, in the loop: the browser's pipes.
#ifndef MPBP_CONNECTOR_STANDARDPIPES_H_
#define MPBP_CONNECTOR_STANDARDPIPES_H_

#include <memory>

#include "base/physicalsocketserver.h"
#include "base/signal.h"
#include "connector/connector.h"

namespace mpbp {

// Moves bytes between the browser and a connector until either stream ends or is broken, and ends
// the thread's loop then. On that thread.
class StandardPipes final : public SlotOwner {
 public:
  // Takes standard input and output away from everybody else: descriptors 0 and 1 become
  // /dev/null, for the programs that are started from here. All is borrowed for the lifetime of
  // this object.
  StandardPipes(PhysicalSocketServer* server, Connector* connector);
  ~StandardPipes();

  // False when the streams cannot be had.
  [[nodiscard]] bool Open();
  // After the loop has ended: whether it ended with the end of the input.
  bool ended_well() const { return ended_well_; }

 private:
  // One of the two in the loop.
  class Pipe;

  void OnReadable();
  void OnWritable();
  void OnOutput();
  void End(bool well);

  PhysicalSocketServer* const server_;
  Connector* const connector_;
  std::unique_ptr<Pipe> input_;
  std::unique_ptr<Pipe> output_;
  bool ended_ = false;
  bool ended_well_ = false;
};

}  // namespace mpbp

#endif  // MPBP_CONNECTOR_STANDARDPIPES_H_
