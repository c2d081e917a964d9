// The demo: a page, the plug-in and a real engine process, from the first connection to the kill.
#ifndef MPBP_HOST_DEMO_DEMO_H_
#define MPBP_HOST_DEMO_DEMO_H_

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "host/host.h"

namespace mpbp::host {

struct DemoPaths {
  std::string module;
  std::string engine_folder;  // holds MurmelParlPlugin
  std::string profile;  // the application data folder's parent; made and removed by the caller
};

class Demo {
 public:
  explicit Demo(DemoPaths paths);
  ~Demo();

  // Prints the transcript. False when a step did not happen in time, with a line that says which.
  bool Run();

 private:
  bool RunSteps();
  void Say(const std::string& line) const;
  void Title(const std::string& text) const;
  void OnText(const std::string& text);
  bool Send(const std::string& text);
  // Waits until a text that contains `part` has come since the last Send or Title.
  bool Await(const std::string& part);
  bool Fail(const std::string& what) const;
  bool WriteOptions() const;
  void NoteEngine(const std::string& announcement);
  bool AwaitEnd(pid_t engine);
  // Collects ended engines: they are this process's children once their starter is gone.
  void Reap();

  const DemoPaths paths_;
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  Host host_;
  std::shared_ptr<Page> page_;
  std::vector<std::string> texts_;
  size_t mark_ = 0;          // texts before it are of an earlier step
  pid_t engine_ = 0;         // the last one that announced itself
  std::set<pid_t> engines_;  // those that have not ended
};

}  // namespace mpbp::host

#endif  // MPBP_HOST_DEMO_DEMO_H_
