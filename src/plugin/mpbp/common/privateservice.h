// What the engine may ask of the browser beyond the rights of a page: permissions and remoting
// sessions. Where there is no such browser, it is implemented with refusals.
#ifndef MPBP_PLUGIN_MPBP_COMMON_PRIVATESERVICE_H_
#define MPBP_PLUGIN_MPBP_COMMON_PRIVATESERVICE_H_

#include <cstdint>
#include <functional>

namespace mpbp {

// On the channel's thread. Results are the browser's codes: 0 and above say that it worked, 1 that
// a permission was granted, negative ones are errors.
//
// A request returns kPending when `done` runs once, later or inside the call, and any other code
// when it never will. Anything may have happened when it returns, the end of whoever called it
// included.
class PrivateService {
 public:
  using Done = std::function<void(int32_t result)>;
  static constexpr int32_t kPending = -1;

  PrivateService() = default;
  PrivateService(const PrivateService&) = delete;
  PrivateService& operator=(const PrivateService&) = delete;
  virtual ~PrivateService() = default;

  [[nodiscard]] virtual int32_t RequestPermission(int32_t kind, Done done) = 0;
  // `on_event` runs for each event of the session; that of a later start replaces it.
  [[nodiscard]] virtual int32_t StartRemoting(std::function<void(int32_t event)> on_event,
                                              Done done) = 0;
  [[nodiscard]] virtual int32_t StopRemoting(Done done) = 0;
  // Nothing that was given to the requests runs from here on.
  virtual void End() = 0;
};

}  // namespace mpbp

#endif  // MPBP_PLUGIN_MPBP_COMMON_PRIVATESERVICE_H_
