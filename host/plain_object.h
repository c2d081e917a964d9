#ifndef MPBP_HOST_PLAIN_OBJECT_H_
#define MPBP_HOST_PLAIN_OBJECT_H_

#include <map>
#include <string>
#include <vector>

#include "host/script_object.h"

namespace mpbp::host {

// An object of the page's own, with properties that anybody may read and write.
class PlainObject : public ScriptObject {
 public:
  explicit PlainObject(std::map<std::string, Value> properties = {});

  bool HasProperty(const Value& name, Thrown& thrown) override;
  bool HasMethod(const Value& name, Thrown& thrown) override;
  Value GetProperty(const Value& name, Thrown& thrown) override;
  void SetProperty(const Value& name, const Value& value, Thrown& thrown) override;
  void RemoveProperty(const Value& name, Thrown& thrown) override;
  std::vector<std::string> PropertyNames(Thrown& thrown) override;
  Value Call(const Value& method, const Values& arguments, Thrown& thrown) override;
  Value Construct(const Values& arguments, Thrown& thrown) override;

 private:
  std::map<std::string, Value> properties_;
};

Value MakeObject(std::map<std::string, Value> properties = {});

}  // namespace mpbp::host

#endif  // MPBP_HOST_PLAIN_OBJECT_H_
