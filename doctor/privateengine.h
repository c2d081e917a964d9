// An engine of the doctor's own, started as the plug-in starts one but with the private folder.
#ifndef MPBP_DOCTOR_PRIVATEENGINE_H_
#define MPBP_DOCTOR_PRIVATEENGINE_H_

#include <optional>
#include <string>

#include "checks/check.h"
#include "doctor/privatefolder.h"
#include "doctor/programs.h"
#include "doctor/setup.h"

namespace mpbp::doctor {

// Both references are borrowed for its life.
class PrivateEngine {
 public:
  PrivateEngine(const Setup& setup, PrivateFolder& folder) : setup_(setup), folder_(folder) {}

  // Starts it when first called, and waits for its port file; what came of it, also later. It runs
  // until EndDescendants.
  const CheckResult& Start();
  bool runs() const { return runs_; }
  // Whether its handshake was seen to fail, so that nobody waits for it again.
  bool refuses() const { return refuses_; }
  void set_refuses(bool refuses) { refuses_ = refuses; }
  std::string port_file() const { return folder_.port_file(); }

 private:
  CheckResult Launch();
  CheckResult WaitForPortFile(Program program, const std::string& error_path);
  CheckResult DescribeRunning(int port, int ms) const;

  const Setup& setup_;
  PrivateFolder& folder_;
  std::optional<CheckResult> result_;
  bool runs_ = false;
  bool refuses_ = false;
};

}  // namespace mpbp::doctor

#endif  // MPBP_DOCTOR_PRIVATEENGINE_H_
