#ifndef MPBP_HOST_SCOPED_VAR_H_
#define MPBP_HOST_SCOPED_VAR_H_

#include "host/var_table.h"

namespace mpbp::host {

// A var made for the length of one call into the module.
class ScopedVar {
 public:
  ScopedVar(VarTable& vars, const Value& value) : vars_(vars), var_(vars.FromValue(value)) {}
  ~ScopedVar() { vars_.Release(var_); }
  ScopedVar(const ScopedVar&) = delete;
  ScopedVar& operator=(const ScopedVar&) = delete;
  PP_Var get() const { return var_; }

 private:
  VarTable& vars_;
  const PP_Var var_;
};

}  // namespace mpbp::host

#endif  // MPBP_HOST_SCOPED_VAR_H_
