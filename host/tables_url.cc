// PPB_URLLoader, PPB_URLRequestInfo, PPB_URLResponseInfo and PPB_URLLoaderTrusted.
#include <memory>
#include <utility>

#include "host/core.h"
#include "host/origin.h"
#include "host/page.h"
#include "host/url_loader.h"
#include "host/url_response_info.h"

namespace mpbp::host {
namespace {

// Null, with the misuse recorded, unless the handle is alive and of the kind.
template <typename T>
std::shared_ptr<T> Find(PP_Resource handle, const char* where) {
  Core* core = MainThreadCore(where);
  return core != nullptr ? core->resources.Get<T>(handle, where) : nullptr;
}

template <typename T>
PP_Bool Is(PP_Resource handle) {
  Core* core = MainThreadCore("Is...");
  return core != nullptr && core->resources.Get<T>(handle, nullptr) ? PP_TRUE : PP_FALSE;
}

PP_Resource CreateLoader(PP_Instance instance) {
  Core* core = MainThreadCore("URLLoader.Create");
  const auto page = core != nullptr ? core->FindPage(instance, "URLLoader.Create") : nullptr;
  if (!page) return 0;
  return core->resources.Add(instance,
                             std::make_shared<UrlLoader>(*core, instance, OriginOf(page->url())));
}

int32_t Open(PP_Resource loader_handle, PP_Resource request_handle,
             PP_CompletionCallback callback) {
  const auto loader = Find<UrlLoader>(loader_handle, "URLLoader.Open");
  const auto request = Find<UrlRequestInfo>(request_handle, "URLLoader.Open");
  return loader && request ? loader->Open(*request, callback) : PP_ERROR_BADRESOURCE;
}

int32_t ReadResponseBody(PP_Resource handle, void* buffer, int32_t size,
                         PP_CompletionCallback callback) {
  const auto loader = Find<UrlLoader>(handle, "ReadResponseBody");
  return loader ? loader->Read(static_cast<char*>(buffer), size, callback) : PP_ERROR_BADRESOURCE;
}

PP_Resource GetResponseInfo(PP_Resource handle) {
  Core* core = MainThreadCore("GetResponseInfo");
  if (core == nullptr) return 0;
  const auto loader = core->resources.Get<UrlLoader>(handle, "GetResponseInfo");
  const auto response = loader ? loader->response() : std::nullopt;
  if (!response) return 0;
  return core->resources.Add(loader->instance(), std::make_shared<UrlResponseInfo>(*response));
}

// Progress is not recorded, and redirects are followed without asking.
PP_Bool NoProgress(PP_Resource, int64_t*, int64_t*) { return PP_FALSE; }
int32_t NotSupported(PP_Resource, PP_CompletionCallback) { return PP_ERROR_NOTSUPPORTED; }

constexpr PPB_URLLoader_1_0 kLoader = {
    &CreateLoader,
    &Is<UrlLoader>,
    &Open,
    &NotSupported,
    &NoProgress,
    &NoProgress,
    &GetResponseInfo,
    &ReadResponseBody,
    &NotSupported,
    [](PP_Resource handle) {
      if (const auto loader = Find<UrlLoader>(handle, "URLLoader.Close")) loader->Abort();
    },
};

PP_Resource CreateRequest(PP_Instance instance) {
  Core* core = MainThreadCore("URLRequestInfo.Create");
  if (core == nullptr || !core->FindPage(instance, "URLRequestInfo.Create")) return 0;
  return core->resources.Add(instance, std::make_shared<UrlRequestInfo>());
}

bool SetText(UrlRequestInfo& info, int32_t property, const std::string& text) {
  switch (property) {
    case PP_URLREQUESTPROPERTY_URL:
      info.request.url = text;
      return true;
    case PP_URLREQUESTPROPERTY_METHOD:
      info.request.method = text;
      return true;
    case PP_URLREQUESTPROPERTY_HEADERS:
      info.request.headers = SplitHeaderLines(text);
      return true;
    default:
      return false;
  }
}

PP_Bool SetRequestProperty(PP_Resource handle, int32_t property, PP_Var var) {
  Core* core = MainThreadCore("URLRequestInfo.SetProperty");
  if (core == nullptr) return PP_FALSE;
  const auto info = core->resources.Get<UrlRequestInfo>(handle, "URLRequestInfo.SetProperty");
  const Value value = core->vars.ToValue(var, "URLRequestInfo.SetProperty");
  if (!info) return PP_FALSE;
  bool set = false;
  if (const auto text = AsString(value)) {
    set = SetText(*info, property, *text);
  } else if (std::holds_alternative<bool>(value)) {
    // Neither changes anything: there are no credentials, and what a request to another origin
    // needs here is universal access.
    set = property == PP_URLREQUESTPROPERTY_ALLOWCREDENTIALS ||
          property == PP_URLREQUESTPROPERTY_ALLOWCROSSORIGINREQUESTS;
  }
  if (!set) {
    core->misuse.Add("URLRequestInfo.SetProperty: property " + std::to_string(property) + " to " +
                     ToText(value));
  }
  return set ? PP_TRUE : PP_FALSE;
}

PP_Bool AppendDataToBody(PP_Resource handle, const void* data, uint32_t length) {
  const auto info = Find<UrlRequestInfo>(handle, "AppendDataToBody");
  if (!info || (data == nullptr && length > 0)) return PP_FALSE;
  if (length > 0) info->request.body.append(static_cast<const char*>(data), length);
  return PP_TRUE;
}

constexpr PPB_URLRequestInfo_1_0 kRequest = {
    &CreateRequest,
    &Is<UrlRequestInfo>,
    &SetRequestProperty,
    &AppendDataToBody,
    [](PP_Resource, PP_Resource, int64_t, int64_t, PP_Time) { return PP_FALSE; },
};

PP_Var GetResponseProperty(PP_Resource handle, int32_t property) {
  Core* core = MainThreadCore("URLResponseInfo.GetProperty");
  if (core == nullptr) return UndefinedVar();
  const auto info = core->resources.Get<UrlResponseInfo>(handle, "URLResponseInfo.GetProperty");
  if (!info) return UndefinedVar();
  const HttpResponse& response = info->response;
  switch (property) {
    case PP_URLRESPONSEPROPERTY_URL:
      return core->vars.FromUtf8(response.url);
    case PP_URLRESPONSEPROPERTY_STATUSCODE:
      return core->vars.FromValue(response.status);
    case PP_URLRESPONSEPROPERTY_STATUSLINE:
      return core->vars.FromUtf8(response.reason);
    case PP_URLRESPONSEPROPERTY_HEADERS:
      return core->vars.FromUtf8(response.headers);
    case PP_URLRESPONSEPROPERTY_REDIRECTURL:
    case PP_URLRESPONSEPROPERTY_REDIRECTMETHOD:
      return core->vars.FromUtf8("");
    default:
      core->misuse.Add("URLResponseInfo.GetProperty: no property " + std::to_string(property));
      return UndefinedVar();
  }
}

constexpr PPB_URLResponseInfo_1_0 kResponse = {
    &Is<UrlResponseInfo>,
    &GetResponseProperty,
    [](PP_Resource) -> PP_Resource { return 0; },
};

constexpr PPB_URLLoaderTrusted_0_3 kTrusted = {
    [](PP_Resource handle) {
      const auto loader = Find<UrlLoader>(handle, "GrantUniversalAccess");
      if (loader) loader->GrantUniversalAccess();
    },
    [](PP_Resource, PP_URLLoaderTrusted_StatusCallback) {},
};

}  // namespace

const void* FindUrlTable(const std::string& name) {
  if (name == PPB_URLLOADER_INTERFACE_1_0) return &kLoader;
  if (name == PPB_URLREQUESTINFO_INTERFACE_1_0) return &kRequest;
  if (name == PPB_URLRESPONSEINFO_INTERFACE_1_0) return &kResponse;
  if (name == PPB_URLLOADERTRUSTED_INTERFACE_0_3) return &kTrusted;
  return nullptr;
}

}  // namespace mpbp::host
