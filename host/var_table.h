// The vars a module holds: handles with reference counts, with strict bookkeeping.
#ifndef MPBP_HOST_VAR_TABLE_H_
#define MPBP_HOST_VAR_TABLE_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "abi/browser_abi.h"
#include "host/misuse_log.h"
#include "host/script_object.h"

namespace mpbp::host {

// Main thread only. Whatever is wrong with a var that is passed in is recorded as misuse, together
// with `where`, and the var counts as undefined.
class VarTable {
 public:
  explicit VarTable(MisuseLog& misuse) : misuse_(misuse) {}

  // The result carries one reference for the caller. Bytes that are not UTF-8 give null.
  PP_Var FromUtf8(std::string_view bytes);
  // The same object gives the same handle for as long as the handle lives.
  PP_Var FromValue(const Value& value);
  // Takes no reference.
  Value ToValue(PP_Var var, const std::string& where);

  void AddRef(PP_Var var);
  // The last reference of an object may run code of the module.
  void Release(PP_Var var);
  // Exactly the string's bytes, which live as long as the var; null and 0 for any other type.
  const char* ToUtf8(PP_Var var, uint32_t* length);

  // How many handles live, how many references to them there are, and what they are.
  size_t live() const { return entries_.size(); }
  size_t references() const;
  std::vector<std::string> Describe() const;
  // Drops what is still there, whatever its count.
  void Clear();

 private:
  struct String {
    std::unique_ptr<char[]> bytes;
    uint32_t length;
    std::string_view view() const { return {bytes.get(), length}; }
  };
  struct Entry {
    int64_t references;
    std::variant<String, ObjectRef> content;
  };

  static bool IsCounted(PP_Var var) { return var.type >= PP_VARTYPE_STRING; }
  PP_Var Add(PP_VarType type, std::variant<String, ObjectRef> content);
  // Null, with the misuse recorded, when the handle is dead or of another type.
  Entry* Find(PP_Var var, const std::string& where);

  MisuseLog& misuse_;
  std::map<int64_t, Entry> entries_;
  std::map<const ScriptObject*, int64_t> objects_;
  // No handle fits 32 bits, so that a module which cuts one off is found out.
  int64_t next_id_ = 0x1'0000'0011;
};

PP_Var UndefinedVar();

}  // namespace mpbp::host

#endif  // MPBP_HOST_VAR_TABLE_H_
