// Signals and slots. A signal calls its connected handlers in connection order; a connection goes
// when either side is destroyed.
//
// One thread at a time uses a signal and the owners connected to it. A handler may do anything:
// connect, disconnect, emit again, or delete the signal, its own object or any other. Handlers
// connected during an emission are not called by it; disconnected ones are not called any more.
// Emitting allocates nothing.
#ifndef MPBP_BASE_SIGNAL_H_
#define MPBP_BASE_SIGNAL_H_

#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace mpbp {

class SlotOwner;

namespace internal {

// Shared by the signal and the owner; whoever goes first clears `owner`.
struct ConnectionBase {
  explicit ConnectionBase(SlotOwner* slot_owner) : owner(slot_owner) {}
  SlotOwner* owner;  // null once disconnected
};

template <typename Container>
void PruneConnections(Container& connections) {
  std::erase_if(connections, [](const auto& connection) { return !connection->owner; });
}

}  // namespace internal

// Base of every class whose methods are connected to signals.
class SlotOwner {
 public:
  SlotOwner() = default;
  SlotOwner(const SlotOwner&) = delete;
  SlotOwner& operator=(const SlotOwner&) = delete;

 protected:
  ~SlotOwner() { DisconnectAll(); }

  // Drops every connection to this object's methods.
  void DisconnectAll() {
    for (const auto& connection : connections_) connection->owner = nullptr;
    connections_.clear();
  }

 private:
  template <typename... Args>
  friend class Signal;

  void Remember(std::shared_ptr<internal::ConnectionBase> connection) {
    internal::PruneConnections(connections_);
    connections_.push_back(std::move(connection));
  }

  std::vector<std::shared_ptr<internal::ConnectionBase>> connections_;
};

template <typename... Args>
class Signal {
 public:
  Signal() = default;
  Signal(const Signal&) = delete;
  Signal& operator=(const Signal&) = delete;
  ~Signal() { DisconnectAll(); }

  // Connects a method of `owner`; the connection ends by itself with either object.
  template <typename Owner>
  void Connect(Owner* owner, void (Owner::*method)(Args...)) {
    auto connection = std::make_shared<Connection>(
        owner, [owner, method](Args... args) { (owner->*method)(args...); });
    state_->connections.push_back(connection);
    static_cast<SlotOwner*>(owner)->Remember(std::move(connection));
  }

  void Disconnect(const SlotOwner* owner) {
    for (const auto& connection : state_->connections) {
      if (connection->owner == owner) connection->owner = nullptr;
    }
    state_->PruneIfIdle();
  }

  void DisconnectAll() {
    for (const auto& connection : state_->connections) connection->owner = nullptr;
    state_->PruneIfIdle();
  }

  // Calls the handlers. When it returns, the signal itself may be gone.
  void operator()(Args... args) const {
    const std::shared_ptr<State> state = state_;
    const Emission emission(*state);
    const size_t count = state->connections.size();
    for (size_t i = 0; i < count; ++i) {
      const std::shared_ptr<Connection> connection = state->connections[i];
      if (connection->owner) connection->call(args...);
    }
  }

 private:
  struct Connection : internal::ConnectionBase {
    Connection(SlotOwner* slot_owner, std::function<void(Args...)> function)
        : ConnectionBase(slot_owner), call(std::move(function)) {}
    std::function<void(Args...)> call;
  };

  // Outlives the signal while an emission is on the stack.
  struct State {
    std::vector<std::shared_ptr<Connection>> connections;
    int depth = 0;  // emissions on the stack; entries keep their place meanwhile

    void PruneIfIdle() {
      if (depth == 0) internal::PruneConnections(connections);
    }
  };

  class Emission {
   public:
    explicit Emission(State& state) : state_(state) { ++state_.depth; }
    Emission(const Emission&) = delete;
    Emission& operator=(const Emission&) = delete;
    ~Emission() {
      --state_.depth;
      state_.PruneIfIdle();
    }

   private:
    State& state_;
  };

  std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace mpbp

#endif  // MPBP_BASE_SIGNAL_H_
