// The page's side of scripting: values, and the objects that page and module show each other.
// Everything here belongs to the main thread.
#ifndef MPBP_HOST_SCRIPT_H_
#define MPBP_HOST_SCRIPT_H_

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace mpbp::host {

class ScriptObject;

// One script reference to an object. The object learns when the last one goes; a call that is on
// the stack holds none, so that this may happen while the object is being called.
class ObjectRef {
 public:
  ObjectRef() = default;
  explicit ObjectRef(std::shared_ptr<ScriptObject> object);
  ObjectRef(const ObjectRef& other);
  ObjectRef(ObjectRef&& other) noexcept;
  ObjectRef& operator=(ObjectRef other) noexcept;
  ~ObjectRef();

  void Reset();
  const std::shared_ptr<ScriptObject>& get() const { return object_; }
  explicit operator bool() const { return object_ != nullptr; }
  bool operator==(const ObjectRef& other) const { return object_ == other.object_; }

 private:
  std::shared_ptr<ScriptObject> object_;
};

struct Undefined {
  bool operator==(const Undefined&) const = default;
};
struct Null {
  bool operator==(const Null&) const = default;
};

using Value = std::variant<Undefined, Null, bool, int32_t, double, std::string, ObjectRef>;
using Values = std::vector<Value>;

// The text of a thrown exception; nothing when none was thrown.
using Thrown = std::optional<std::string>;

struct Result {
  Value value;
  Thrown exception;
};

// For messages: strings in quotes, objects as "object".
std::string ToText(const Value& value);
// The text of a string value; nothing for any other.
std::optional<std::string> AsString(const Value& value);

// What can be done with an object. A function that throws sets `thrown` and returns undefined or
// false; `thrown` is empty when it is passed in. Any of them may run page or module code, which may
// drop the last script reference to this very object: the caller keeps a shared_ptr meanwhile.
class ScriptObject : public std::enable_shared_from_this<ScriptObject> {
 public:
  ScriptObject() = default;
  ScriptObject(const ScriptObject&) = delete;
  ScriptObject& operator=(const ScriptObject&) = delete;
  virtual ~ScriptObject() = default;

  virtual bool HasProperty(const Value& name, Thrown& thrown) = 0;
  virtual bool HasMethod(const Value& name, Thrown& thrown) = 0;
  virtual Value GetProperty(const Value& name, Thrown& thrown) = 0;
  virtual void SetProperty(const Value& name, const Value& value, Thrown& thrown) = 0;
  virtual void RemoveProperty(const Value& name, Thrown& thrown) = 0;
  virtual std::vector<std::string> PropertyNames(Thrown& thrown) = 0;
  // Undefined as `method` calls the object itself; null throws.
  virtual Value Call(const Value& method, const Values& arguments, Thrown& thrown) = 0;
  virtual Value Construct(const Values& arguments, Thrown& thrown) = 0;

 protected:
  friend class ObjectRef;
  virtual void OnUnreferenced() {}

 private:
  int references_ = 0;
};

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

using Function = std::function<Result(const Values& arguments)>;

// A function of the page. A C++ exception that leaves it is thrown on as a script exception.
class PageFunction final : public PlainObject {
 public:
  explicit PageFunction(Function function);
  Value Call(const Value& method, const Values& arguments, Thrown& thrown) override;

 private:
  const Function function_;
};

Value MakeObject(std::map<std::string, Value> properties = {});
Value MakeFunction(Function function);

}  // namespace mpbp::host

#endif  // MPBP_HOST_SCRIPT_H_
