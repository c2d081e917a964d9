// Objects of the module that the page's script can use.
#ifndef MPBP_PLUGIN_MPBP_PPAPI_SCRIPTABLEOBJECT_H_
#define MPBP_PLUGIN_MPBP_PPAPI_SCRIPTABLEOBJECT_H_

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "ppapi/var.h"

namespace mpbp {

// What the browser calls for an object. Setting *exception throws it into the script; it is
// undefined on entry. The defaults have no property and no method, and refuse everything else.
//
// The browser lets the object go with its last reference, even while one of these is on the stack:
// the object itself then lives until that returns.
class ScriptableObject {
 public:
  ScriptableObject() = default;
  ScriptableObject(const ScriptableObject&) = delete;
  ScriptableObject& operator=(const ScriptableObject&) = delete;
  virtual ~ScriptableObject() = default;

  virtual bool HasProperty(const Var& name, Var* exception);
  virtual bool HasMethod(const Var& name, Var* exception);
  virtual Var GetProperty(const Var& name, Var* exception);
  virtual void GetAllPropertyNames(std::vector<Var>* names, Var* exception);
  virtual void SetProperty(const Var& name, const Var& value, Var* exception);
  virtual void RemoveProperty(const Var& name, Var* exception);
  virtual Var Call(const Var& method, std::span<const Var> arguments, Var* exception);
  virtual Var Construct(std::span<const Var> arguments, Var* exception);
};

// Hands an object to the browser: a var of a new script object, or undefined when the browser makes
// none.
Var CreateScriptObject(PP_Instance instance, std::shared_ptr<ScriptableObject> object);

}  // namespace mpbp

#endif  // MPBP_PLUGIN_MPBP_PPAPI_SCRIPTABLEOBJECT_H_
