#ifndef MPBP_BASE_RUNNABLE_H_
#define MPBP_BASE_RUNNABLE_H_

namespace mpbp {

class Thread;

// What a thread runs.
class Runnable {
 public:
  Runnable() = default;
  Runnable(const Runnable&) = delete;
  Runnable& operator=(const Runnable&) = delete;
  virtual ~Runnable() = default;
  virtual void Run(Thread* thread) = 0;
};

}  // namespace mpbp

#endif  // MPBP_BASE_RUNNABLE_H_
