// The plug-in's end of the link to the engine: finds it, starts it when it is not there, passes the
// handshake, relays texts both ways, restarts an engine that dies, and tells the page every step.
//
// channelstates.h has its states, and what each event leads to.
//
// Everything runs on the browser's main thread. Every text for the page calls out to the page,
// which may from there send, kill, stop and start this channel, or destroy its owner: a channel is
// held by whoever is on the stack, and looks again, after each such call, whether its run has
// ended.
#ifndef MPBP_PLUGIN_MPBP_COMMON_CLIENTCHANNEL_H_
#define MPBP_PLUGIN_MPBP_COMMON_CLIENTCHANNEL_H_

#include <json/value.h>

#include <deque>
#include <memory>
#include <string>
#include <string_view>

#include "base/memorylog.h"
#include "base/messagehandler.h"
#include "base/signal.h"
#include "httpmessages.h"
#include "logutility.h"
#include "plugin/mpbp/common/browserthread.h"
#include "plugin/mpbp/common/channelstates.h"
#include "plugin/mpbp/common/clientchanneldelegate.h"
#include "pluginmessagesocket.h"

namespace mpbp {

// What became of an attempt to link up.
enum class LinkAttempt {
  UNDER_WAY,  // the rest comes with events and timers
  FAILED,
  ENDED,  // the page has stopped the channel, or started it anew, from inside
};

class ClientChannel : public MessageHandler,
                      public SlotOwner,
                      public std::enable_shared_from_this<ClientChannel> {
 public:
  // Null, with an error line, when pages of `url` are not served. `delegate` is borrowed until
  // Detach.
  [[nodiscard]] static std::shared_ptr<ClientChannel> Create(ClientChannelDelegate* delegate,
                                                             const std::string& url);
  ~ClientChannel() override;

  // Starts the link, launching an engine when there is none. FAILED when the channel runs already,
  // or neither worked. Reports to the page from inside.
  [[nodiscard]] LinkAttempt Start(std::unique_ptr<PluginMessageSocket> socket);
  // Ends the link; the engine goes on. Harmless, with an error line, on a channel that does not
  // run.
  void Stop();
  // No text reaches the delegate from here on; its owner is going.
  void Detach() { delegate_ = nullptr; }

  // From Start to Stop.
  virtual bool IsRunning() const { return socket_ != nullptr; }
  // A page's text: acted on here ("kill", "uploadbrowserpluginlog"), or written to the engine, or
  // queued until the engine has authorized. False when it was not accepted: the channel does not
  // run, the link was given up, or too much waits for the engine already.
  [[nodiscard]] virtual bool Send(std::string_view text);
  // While held, nothing more is read from an engine that is linked: what the page cannot take stays
  // with the engine. From any place but a call of the delegate's it may be lifted.
  void HoldEngine(bool held);
  // Answers an HTTP request of the engine. Dropped when the link that asked is gone.
  void SendHttpResponse(std::unique_ptr<HttpResponse> response);

  // The thread whose queue and sockets the channel uses; null while it does not run. Whoever pumps
  // it holds it meanwhile.
  std::shared_ptr<BrowserThread> browser_thread() const { return browser_thread_; }
  ChannelState state() const { return state_; }

 protected:
  enum TimerId : uint32_t { kMsgConnect = 0, kMsgRestart = 1, kMsgOnlineCheck = 2 };

  ClientChannel(ClientChannelDelegate* delegate, std::string url);

  // The in-memory plug-in log, null once it has been released.
  virtual std::shared_ptr<MemoryLog> LogStore();
  [[nodiscard]] virtual bool ConnectSocket(int* error);
  // Closes the socket without releasing it.
  virtual void Disconnect();
  virtual void PostDelayed(int32_t delay_ms, uint32_t id);
  void OnMessage(Message* message) override;
  [[nodiscard]] virtual bool StartEngine();
  virtual void OnSocketClosed(MessageSocket* socket, int reason);
  [[nodiscard]] virtual bool LaunchEngineProcess(int* error);

 private:
  friend class ClientChannelTestPeer;

  // The one place that changes the state. `reason` is logged at the most verbose level.
  void SetState(ChannelState state, const char* reason);
  // Makes the transition that the event leads to from the present state, and returns it.
  const ChannelTransition& Enter(ChannelEvent event, const char* reason);

  // Connection and lifecycle (clientchannel.cc).
  void AttachSocket(std::unique_ptr<PluginMessageSocket> socket);
  [[nodiscard]] LinkAttempt InitiateConnection();
  void TryToConnect();
  void RestartEngine();
  void RequestRestart(const char* reason);
  void OnPortFileRead(MessageSocket* socket, bool ok);
  void OnSocketConnected(MessageSocket* socket);
  void OnSocketAuthorized(MessageSocket* socket);
  bool IsOurSocket(const MessageSocket* socket) const;
  void ReleaseThread();
  void SendConnectStatus(ConnectStep step, int error);
  void Recover();
  void FollowClose(const ChannelTransition& transition, int reason);
  void Deliver(const std::string& text);
  // Whether the run that `run` was noted in has ended.
  bool HasEnded(uint32_t run) const { return run != run_; }

  // The watchdog (onlinecheck.cc).
  void ScheduleOnlineCheck();
  void HandleOnlineCheck();

  // Routing (messagerouting.cc).
  void OnSocketMessage(MessageSocket* socket, const std::string& text);
  [[nodiscard]] bool PreRoute(std::string_view text);
  [[nodiscard]] bool SendToEngine(std::string_view text);
  [[nodiscard]] bool WriteToEngine(std::string_view text);
  size_t WaitingBytes() const;  // in the queue and in the socket's buffer; the channel runs
  void RelayToPage(const std::string& text);
  [[nodiscard]] bool HandleKill(const Json::Value& message);
  void HandleHttpRequest(const std::string& text);
  void HandleGetProxyForUrl(const std::string& text);
  void StartHttpRequest(const HttpRequest& request, std::unique_ptr<HttpResponse> response);

  // The log upload (logupload.cc).
  [[nodiscard]] bool HandleUploadBrowserPluginLog(const Json::Value& message);
  void UploadLog(const std::string& jid);
  [[nodiscard]] bool BuildLogForm(MultipartStream* form, const std::string& jid);

  ClientChannelDelegate* delegate_;
  const std::string origin_url_;
  std::deque<std::string> pending_sends_;
  size_t pending_bytes_ = 0;  // of those
  std::shared_ptr<BrowserThread> browser_thread_;
  std::unique_ptr<PluginMessageSocket> socket_;
  ChannelState state_ = ChannelState::NOT_CONNECTED;  // written by SetState
  int32_t pending_online_checks_ = 0;
  int32_t bad_state_count_ = 0;
  bool restart_tried_ = false;
  bool engine_held_ = false;
  bool given_up_ = false;  // the online check has closed the link, and nothing brings it back
  uint32_t run_ = 0;       // counts starts and stops
  uint32_t link_ = 0;      // counts links to the engine; 0: there was none yet
};

}  // namespace mpbp

#endif  // MPBP_PLUGIN_MPBP_COMMON_CLIENTCHANNEL_H_
