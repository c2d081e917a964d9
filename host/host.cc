#include "host/host.h"

#include <cstdio>
#include <exception>
#include <utility>

#include "host/core.h"
#include "host/module_object.h"

namespace mpbp::host {
namespace {

// More late callbacks than this mean that the module posts new ones for ever.
constexpr int kMaxLateTasks = 10000;

PP_Module NextModuleId() {
  static PP_Module last = 40;
  return ++last;
}

}  // namespace

Host::Host(HostOptions options) : core_(std::make_unique<Core>()) {
  core_->options = std::move(options);
  if (AnyThreadCore() != nullptr) core_->misuse.Add("a second host was made in one process");
  SetCurrentCore(core_.get());
}

Host::~Host() {
  try {
    Unload();
  } catch (const std::exception& e) {
    fprintf(stderr, "unloading the module failed: %s\n", e.what());
  }
  SetCurrentCore(nullptr);
}

HostOptions& Host::options() { return core_->options; }

MainLoop& Host::loop() { return core_->loop; }

std::optional<std::string> Host::Load(const std::string& path) {
  Unload();
  if (auto error = core_->library.Open(path)) return error;
  core_->module = core_->library.entry_points();
  return Initialise();
}

std::optional<std::string> Host::LoadLinked(const EntryPoints& module) {
  Unload();
  core_->module = module;
  return Initialise();
}

std::optional<std::string> Host::Initialise() {
  left_ = {};
  core_->asked.clear();
  core_->module_id = NextModuleId();
  const int32_t result = core_->module.initialize(core_->module_id, &GetBrowserInterface);
  if (result == PP_OK) return std::nullopt;
  Forget();
  return "PPP_InitializeModule returned " + std::to_string(result);
}

bool Host::loaded() const { return core_->module.shutdown != nullptr; }

void Host::DeallocateObjects() {
  while (!core_->objects.empty()) {
    const auto keep = (*core_->objects.begin())->shared_from_this();
    static_cast<ModuleObject&>(*keep).Deallocate();
  }
}

void Host::Unload() {
  if (!loaded()) return;
  while (!core_->instances.empty()) {
    const auto page = core_->instances.begin()->second;
    page->EndInstance();
  }
  if (core_->options.drop_pending) {
    core_->loop.DropTasks();
  } else if (!core_->loop.Drain(kMaxLateTasks)) {
    core_->misuse.Add("callbacks are still being posted after the last instance went");
  }
  const size_t objects = core_->objects.size();
  DeallocateObjects();
  core_->module.shutdown();
  left_ = {LeakedVars(), LeakedResources(), References(), core_->memory.live(), objects};
  Forget();
}

void Host::Forget() {
  core_->resources.Clear();
  core_->vars.Clear();
  core_->memory.Clear();
  DeallocateObjects();      // those made while the module was ending
  core_->loop.DropTasks();  // nothing may call into the file that is closed next
  core_->module = {};
  core_->library.Close();
}

void Host::Abandon() {
  for (const auto& [instance, page] : core_->instances) page->state_ = Page::State::kGone;
  core_->instances.clear();
  DeallocateObjects();
  core_->loop.DropTasks();
  core_->module = {};
  core_->library.Close();
}

const void* Host::ModuleInterface(const char* name) const {
  return core_->ModuleInterface<void>(name);
}

std::shared_ptr<Page> Host::CreatePage(const std::string& url, const Page::Attributes& attributes) {
  auto page = std::make_shared<Page>(*core_, url);
  if (loaded()) page->Create(attributes);
  return page;
}

void Host::DestroyInstances() {
  const auto instances = core_->instances;
  for (const auto& [instance, page] : instances) page->DestroyInstance();
}

const std::set<std::string>& Host::asked_interfaces() const { return core_->asked; }

const std::vector<ParlService::Request>& Host::permission_requests() const {
  return core_->parl.requests();
}

std::vector<std::string> Host::Misuse() const { return core_->misuse.texts(); }

void Host::ClearMisuse() { core_->misuse.Clear(); }

size_t Host::live_vars() const { return loaded() ? core_->vars.live() : left_.vars.size(); }

size_t Host::live_resources() const {
  return loaded() ? core_->resources.live() : left_.resources.size();
}

size_t Host::live_allocations() const {
  return loaded() ? core_->memory.live() : left_.allocations;
}

size_t Host::live_objects() const { return loaded() ? core_->objects.size() : left_.objects; }

std::vector<std::string> Host::LeakedVars() const {
  return loaded() ? core_->vars.Describe() : left_.vars;
}

std::vector<std::string> Host::LeakedResources() const {
  return loaded() ? core_->resources.Describe() : left_.resources;
}

size_t Host::References() const {
  return loaded() ? core_->vars.references() + core_->resources.references() : left_.references;
}

size_t Host::leaked() const { return References() + live_allocations() + live_objects(); }

}  // namespace mpbp::host
