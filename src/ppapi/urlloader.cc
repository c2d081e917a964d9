#include "ppapi/urlloader.h"

#include <limits>
#include <utility>

#include "ppapi/browser.h"
#include "ppapi/var.h"

namespace mpbp {
namespace {

bool SetProperty(const Resource& info, PP_URLRequestProperty property, const Var& value) {
  return Browser().url_request_info->SetProperty(info.get(), property, value.get()) == PP_TRUE;
}

// Null when the browser refuses a part of the request.
Resource MakeRequestInfo(PP_Instance instance, const UrlRequest& request) {
  const PPB_URLRequestInfo_1_0* const table = Browser().url_request_info;
  if (!table || request.body.size() > std::numeric_limits<uint32_t>::max()) return {};
  Resource info(table->Create(instance));
  const bool complete =
      info && SetProperty(info, PP_URLREQUESTPROPERTY_URL, Var(request.url)) &&
      SetProperty(info, PP_URLREQUESTPROPERTY_METHOD, Var(request.method)) &&
      SetProperty(info, PP_URLREQUESTPROPERTY_HEADERS, Var(request.headers)) &&
      SetProperty(info, PP_URLREQUESTPROPERTY_ALLOWCROSSORIGINREQUESTS, Var(true)) &&
      (request.body.empty() ||
       table->AppendDataToBody(info.get(), request.body.data(),
                               static_cast<uint32_t>(request.body.size())) == PP_TRUE);
  return complete ? std::move(info) : Resource();
}

}  // namespace

UrlLoader::UrlLoader(PP_Instance instance) : instance_(instance) {}

void UrlLoader::Close() {
  closed_ = true;
  const Resource loader = std::move(loader_);
  if (loader && Browser().url_loader) Browser().url_loader->Close(loader.get());
}

int32_t UrlLoader::Open(const UrlRequest& request, const PP_CompletionCallback& callback) {
  const PPB_URLLoader_1_0* const table = Browser().url_loader;
  if (!table) return PP_ERROR_NOINTERFACE;
  const Resource info = MakeRequestInfo(instance_, request);
  if (!info) return PP_ERROR_BADARGUMENT;
  if (closed_) return PP_ERROR_ABORTED;
  Resource loader(table->Create(instance_));
  if (!loader) return PP_ERROR_FAILED;
  if (Browser().url_loader_trusted) {
    Browser().url_loader_trusted->GrantUniversalAccess(loader.get());
  }
  if (closed_) return PP_ERROR_ABORTED;
  loader_ = std::move(loader);
  return table->Open(loader_.get(), info.get(), callback);
}

int32_t UrlLoader::Read(std::span<char> buffer, const PP_CompletionCallback& callback) {
  const PPB_URLLoader_1_0* const table = Browser().url_loader;
  if (!table || !loader_) return PP_ERROR_BADRESOURCE;
  return table->ReadResponseBody(loader_.get(), buffer.data(), static_cast<int32_t>(buffer.size()),
                                 callback);
}

UrlResponseInfo UrlLoader::ResponseInfo() const {
  const PPB_URLLoader_1_0* const table = Browser().url_loader;
  if (!table || !loader_) return {};
  return UrlResponseInfo(table->GetResponseInfo(loader_.get()));
}

}  // namespace mpbp
