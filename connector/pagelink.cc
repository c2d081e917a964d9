#include "connector/pagelink.h"

#include <utility>

#include "base/logging.h"
#include "base/utf8.h"
#include "connector/noprivateservice.h"
#include "plugin/mpbp/common/forgedtext.h"
#include "plugin/mpbp/common/proxylookup.h"

namespace mpbp {

PageLink::PageLink(LinkNumber number, BrowserWriter* writer, BrowserHttp* http)
    : number_(number),
      writer_(writer),
      http_(http),
      sender_([number, writer](std::string_view piece, bool more) {
        writer->WritePiece(number, piece, more);
      }),
      remoting_handler_(std::make_shared<RemotingHandler>(std::make_unique<NoPrivateService>())) {
  remoting_handler_->SignalOutgoing.Connect(this, &PageLink::SendToEngine);
}

PageLink::~PageLink() {
  if (channel_) {
    if (channel_->IsRunning()) channel_->Stop();
    channel_->Detach();  // a timer of it may be queued
  }
  remoting_handler_->End();
  http_->CancelAll(this);
}

bool PageLink::Open(const std::string& origin, const ChannelFactory& factory) {
  channel_ = factory(this, origin);
  return channel_ != nullptr;
}

void PageLink::Start() {
  if (channel_->IsRunning()) return;
  if (channel_->Start(std::make_unique<PluginMessageSocket>()) != LinkAttempt::UNDER_WAY) {
    LOG(LS_ERROR) << "Failed to start client channel.";
  }
}

void PageLink::TakePiece(std::string piece, bool more) {
  std::string text;
  const PieceReceiver::Result result = receiver_.Take(std::move(piece), more, &text);
  if (const size_t pieces = receiver_.TakeAcknowledgement()) {
    writer_->WriteAcknowledgement(number_, pieces);
  }
  if (result == PieceReceiver::Result::PARTIAL) return;
  if (result == PieceReceiver::Result::WHOLE && IsForgedPermissionResult(text)) {
    Refuse("Method call not allowed");
  } else if (result != PieceReceiver::Result::WHOLE || !channel_->Send(text)) {
    Refuse("Send returned false");
  }
}

void PageLink::Refuse(const char* reason) {
  LOG(LS_ERROR) << "Call: " << reason;
  writer_->WriteFailure("refused", number_, "text-refused", reason);
}

bool PageLink::Acknowledge(size_t pieces) {
  if (!sender_.Acknowledge(pieces)) return false;
  if (!sender_.waits()) channel_->HoldEngine(false);
  return true;
}

void PageLink::MessageReceived(const std::string& text) {
  if (!remoting_handler_->HandleMessage(text)) SendText(text);
}

void PageLink::SendText(const std::string& text) {
  // As the module does: browsers do not take all that is UTF-8.
  sender_.Send(ReplaceInvalidUtf8AndNoncharacters(text));
  // What the page does not take stays with the engine.
  if (sender_.waits() && channel_) channel_->HoldEngine(true);
}

bool PageLink::StartHttpRequest(const HttpRequest& request,
                                std::unique_ptr<HttpResponse>& response) {
  return http_->Start(this, request, response);
}

bool PageLink::GetProxyForUrl(const std::string& text, std::string* reply) {
  return AnswerProxyRequest(text, reply);
}

void PageLink::OnHttpResponse(std::unique_ptr<HttpResponse> response) {
  channel_->SendHttpResponse(std::move(response));
}

void PageLink::SendToEngine(const std::string& text) {
  static_cast<void>(channel_->Send(text));  // logs its failure
}

}  // namespace mpbp
