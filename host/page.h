// A page with the plug-in's element, and what a page's script can do with it.
#ifndef MPBP_HOST_PAGE_H_
#define MPBP_HOST_PAGE_H_

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "abi/browser_abi.h"
#include "host/script_object.h"

namespace mpbp::host {

struct Core;

// Host::CreatePage makes pages. Main thread only. Every function may be called from inside a
// callback of the page, DestroyInstance too. Once the instance is gone, be it for that or because
// the module was unloaded, the element is an empty one: properties read as undefined, calls throw.
class Page : public std::enable_shared_from_this<Page> {
 public:
  using Attributes = std::vector<std::pair<std::string, std::string>>;

  Page(Core& core, std::string url);
  Page(const Page&) = delete;
  Page& operator=(const Page&) = delete;

  // False when the module refused the page, and after DestroyInstance.
  bool has_plugin() const { return state_ == State::kLive; }
  PP_Instance instance() const { return instance_; }
  const std::string& url() const { return url_; }
  // The page's `window`, with location.href, and the element's own object.
  const Value& window() const { return window_; }
  const Value& owner_element() const { return owner_element_; }

  // ---- What script does with the element. The module is asked HasProperty and HasMethod first, as
  // often as a browser asks, and what it does not know never reaches it: an unknown name is one of
  // the element's own. ----

  // A method reads as a function.
  Result Get(const std::string& name);
  Result Set(const std::string& name, const Value& value);
  // Throws for a name that is no method.
  Result Call(const std::string& method, const Values& arguments);
  Result Send(const std::string& text) { return Call("send", {text}); }
  // The value says whether the element has the name.
  Result Has(const std::string& name);
  // The names, in the module's order; an exception is given to `thrown` when there is a place.
  std::vector<std::string> Enumerate(Thrown* thrown = nullptr);
  // Sets "onmessage" to a function. A call of it with anything but one string counts as misuse.
  Result SetOnMessage(std::function<void(const std::string&)> on_message);
  Result ClearOnMessage(const Value& value = Null{}) { return Set("onmessage", value); }

  // The module's object itself: its functions reach the module with no question asked before. A
  // copy that is kept outlives the element as a reference that script holds would: the object is
  // deallocated only when the copy goes (unless the options force it). Null without a plug-in.
  ObjectRef Element();

  // The page removes the element: DidDestroy, then the end of the element's object, both before
  // this returns and whatever call is on the stack, DidCreate too. Harmless when there is no
  // instance.
  void DestroyInstance();

  // ---- What the browser sends the instance. ----

  void PostMessage(const Value& message);
  // What HandleInputEvent returned, false without it.
  bool SendInputEvent();
  void ChangeView();
  void ChangeFocus(bool has_focus);
  // The private service's event. False when the instance never started a session.
  bool FireRemotingEvent(int32_t event);

 private:
  friend class Host;
  enum class State { kNew, kCreating, kLive, kDestroying, kGone };
  enum class Kind { kUnknown, kProperty, kMethod };

  // Runs DidCreate, and DidDestroy when that said no.
  void Create(const Attributes& attributes);
  void EndInstance();
  // What the module says the name is.
  Kind Ask(ScriptObject& element, const std::string& name, Thrown& thrown);

  Core& core_;  // not touched once the instance is gone
  const std::string url_;
  const Value window_;
  const Value owner_element_;
  State state_ = State::kNew;
  PP_Instance instance_ = 0;
  ObjectRef element_;
  std::map<std::string, Value> own_properties_;
};

}  // namespace mpbp::host

#endif  // MPBP_HOST_PAGE_H_
