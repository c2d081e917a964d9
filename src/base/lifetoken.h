// Lets code on the stack see whether the object it belongs to was deleted by something it called.
//
//   const LifeToken::Watch alive = life_.watch();
//   SignalReadEvent(this);
//   if (!alive) return;  // a handler deleted this object
//
// One thread only. Watching allocates nothing.
#ifndef MPBP_BASE_LIFETOKEN_H_
#define MPBP_BASE_LIFETOKEN_H_

#include <memory>

namespace mpbp {

class LifeToken {
 public:
  class Watch {
   public:
    explicit operator bool() const { return !token_.expired(); }

   private:
    friend class LifeToken;
    explicit Watch(std::weak_ptr<char> token) : token_(std::move(token)) {}
    std::weak_ptr<char> token_;
  };

  LifeToken() = default;
  LifeToken(const LifeToken&) = delete;
  LifeToken& operator=(const LifeToken&) = delete;

  Watch watch() const { return Watch(token_); }

 private:
  std::shared_ptr<char> token_ = std::make_shared<char>();
};

}  // namespace mpbp

#endif  // MPBP_BASE_LIFETOKEN_H_
