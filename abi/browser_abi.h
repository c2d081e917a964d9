// The browser's plug-in interface as the module must match it bit for bit: Linux x86-64, System V
// calling convention, C linkage, structs passed by value. Table slots stand in call order; nothing
// here may be reordered. Sizes and offsets are asserted at the end of the file.
//
// References: a var or a resource that the browser returns belongs to the caller, who releases it;
// one passed in as an argument stays the caller's. Whoever returns a var from a function of
// PPP_Class_Deprecated hands over one reference. A PP_Var* exception must be undefined before the
// call, or the browser returns at once.
#ifndef MPBP_ABI_BROWSER_ABI_H_
#define MPBP_ABI_BROWSER_ABI_H_

#include <cstddef>
#include <cstdint>

extern "C" {

enum PP_Bool : int32_t { PP_FALSE = 0, PP_TRUE = 1 };

// 0 means none. An instance handle may be negative.
using PP_Instance = int32_t;
using PP_Module = int32_t;
using PP_Resource = int32_t;
using PP_Time = double;       // seconds since 1970
using PP_TimeTicks = double;  // seconds from any start

// Types from PP_VARTYPE_STRING up are reference-counted handles; AddRef and Release do nothing on
// the others. A script's number may arrive as INT32 or as DOUBLE.
enum PP_VarType : int32_t {
  PP_VARTYPE_UNDEFINED = 0,
  PP_VARTYPE_NULL = 1,
  PP_VARTYPE_BOOL = 2,
  PP_VARTYPE_INT32 = 3,
  PP_VARTYPE_DOUBLE = 4,
  PP_VARTYPE_STRING = 5,
  PP_VARTYPE_OBJECT = 6,
  PP_VARTYPE_ARRAY = 7,
  PP_VARTYPE_DICTIONARY = 8,
  PP_VARTYPE_ARRAY_BUFFER = 9,
  PP_VARTYPE_RESOURCE = 10,
};

struct PP_Var {
  PP_VarType type;
  int32_t padding;
  union {
    PP_Bool as_bool;
    int32_t as_int;
    double as_double;
    int64_t as_id;
  } value;
};

// Result codes. Every negative value is a failure, except that PP_OK_COMPLETIONPENDING says that
// the callback will run later.
inline constexpr int32_t PP_OK = 0;
inline constexpr int32_t PP_OK_COMPLETIONPENDING = -1;
inline constexpr int32_t PP_ERROR_FAILED = -2;
inline constexpr int32_t PP_ERROR_ABORTED = -3;
inline constexpr int32_t PP_ERROR_BADARGUMENT = -4;
inline constexpr int32_t PP_ERROR_BADRESOURCE = -5;
inline constexpr int32_t PP_ERROR_NOINTERFACE = -6;
inline constexpr int32_t PP_ERROR_NOACCESS = -7;
inline constexpr int32_t PP_ERROR_NOMEMORY = -8;
inline constexpr int32_t PP_ERROR_INPROGRESS = -11;
inline constexpr int32_t PP_ERROR_NOTSUPPORTED = -12;
inline constexpr int32_t PP_ERROR_FILENOTFOUND = -20;
inline constexpr int32_t PP_ERROR_TIMEDOUT = -30;
inline constexpr int32_t PP_ERROR_USERCANCEL = -40;
inline constexpr int32_t PP_ERROR_CONNECTION_FAILED = -100;
inline constexpr int32_t PP_ERROR_CONNECTION_REFUSED = -102;
inline constexpr int32_t PP_ERROR_CONNECTION_TIMEDOUT = -105;
inline constexpr int32_t PP_ERROR_NAME_NOT_RESOLVED = -110;

using PP_CompletionCallback_Func = void (*)(void* user_data, int32_t result);

inline constexpr int32_t PP_COMPLETIONCALLBACK_FLAG_NONE = 0;      // always asynchronous
inline constexpr int32_t PP_COMPLETIONCALLBACK_FLAG_OPTIONAL = 1;  // may complete at once

struct PP_CompletionCallback {
  PP_CompletionCallback_Func func;
  void* user_data;
  int32_t flags;
};

using PPB_GetInterface = const void* (*)(const char* interface_name);

// ---- Tables the module offers ----

#define PPP_INSTANCE_INTERFACE_1_1 "PPP_Instance;1.1"
struct PPP_Instance_1_1 {
  PP_Bool (*DidCreate)(PP_Instance, uint32_t argc, const char* argn[], const char* argv[]);
  // Called even when DidCreate returned PP_FALSE.
  void (*DidDestroy)(PP_Instance);
  void (*DidChangeView)(PP_Instance, PP_Resource view);
  void (*DidChangeFocus)(PP_Instance, PP_Bool has_focus);
  PP_Bool (*HandleDocumentLoad)(PP_Instance, PP_Resource url_loader);
};

#define PPP_MESSAGING_INTERFACE_1_0 "PPP_Messaging;1.0"
struct PPP_Messaging_1_0 {
  void (*HandleMessage)(PP_Instance, PP_Var message);
};

#define PPP_INPUT_EVENT_INTERFACE_0_1 "PPP_InputEvent;0.1"
struct PPP_InputEvent_0_1 {
  PP_Bool (*HandleInputEvent)(PP_Instance, PP_Resource input_event);
};

#define PPP_INSTANCE_PRIVATE_INTERFACE_0_1 "PPP_Instance_Private;0.1"
struct PPP_Instance_Private_0_1 {
  // The result carries one reference for the caller.
  PP_Var (*GetInstanceObject)(PP_Instance);
};

// ---- Tables the browser offers ----

#define PPB_CORE_INTERFACE_1_0 "PPB_Core;1.0"
struct PPB_Core_1_0 {
  void (*AddRefResource)(PP_Resource);
  void (*ReleaseResource)(PP_Resource);
  PP_Time (*GetTime)(void);
  PP_TimeTicks (*GetTimeTicks)(void);
  // From any thread; never runs the callback inside the call; may never run it when the browser
  // shuts down.
  void (*CallOnMainThread)(int32_t delay_ms, PP_CompletionCallback, int32_t result);
  PP_Bool (*IsMainThread)(void);
};

#define PPB_VAR_INTERFACE_1_1 "PPB_Var;1.1"
struct PPB_Var_1_1 {
  void (*AddRef)(PP_Var);
  void (*Release)(PP_Var);
  // Bytes that are not valid UTF-8 give a null var. NUL bytes are fine.
  PP_Var (*VarFromUtf8)(const char* data, uint32_t len);
  // No terminator; the bytes live only as long as the var.
  const char* (*VarToUtf8)(PP_Var, uint32_t* len);
};

#define PPB_VAR_INTERFACE_1_0 "PPB_Var;1.0"
struct PPB_Var_1_0 {
  void (*AddRef)(PP_Var);
  void (*Release)(PP_Var);
  PP_Var (*VarFromUtf8)(PP_Module, const char* data, uint32_t len);
  const char* (*VarToUtf8)(PP_Var, uint32_t* len);
};

// The scripting class that a module passes to CreateObject; the module owns the table for as long
// as objects of it live.
struct PPP_Class_Deprecated {
  bool (*HasProperty)(void* object, PP_Var name, PP_Var* exception);
  bool (*HasMethod)(void* object, PP_Var name, PP_Var* exception);
  PP_Var (*GetProperty)(void* object, PP_Var name, PP_Var* exception);
  // The array is made with PPB_Memory_Dev::MemAlloc and each name carries a reference; the browser
  // frees both. For no names the count is 0 and the array null.
  void (*GetAllPropertyNames)(void* object, uint32_t* count, PP_Var** names, PP_Var* exception);
  void (*SetProperty)(void* object, PP_Var name, PP_Var value, PP_Var* exception);
  void (*RemoveProperty)(void* object, PP_Var name, PP_Var* exception);
  PP_Var (*Call)(void* object, PP_Var method, uint32_t argc, PP_Var* argv, PP_Var* exception);
  PP_Var (*Construct)(void* object, uint32_t argc, PP_Var* argv, PP_Var* exception);
  void (*Deallocate)(void* object);
};

#define PPB_VAR_DEPRECATED_INTERFACE_0_3 "PPB_Var(Deprecated);0.3"
struct PPB_Var_Deprecated_0_3 {
  void (*AddRef)(PP_Var);
  void (*Release)(PP_Var);
  PP_Var (*VarFromUtf8)(PP_Module, const char* data, uint32_t len);
  const char* (*VarToUtf8)(PP_Var, uint32_t* len);
  bool (*HasProperty)(PP_Var object, PP_Var name, PP_Var* exception);
  bool (*HasMethod)(PP_Var object, PP_Var name, PP_Var* exception);
  PP_Var (*GetProperty)(PP_Var object, PP_Var name, PP_Var* exception);
  void (*GetAllPropertyNames)(PP_Var object, uint32_t* count, PP_Var** names, PP_Var* exception);
  void (*SetProperty)(PP_Var object, PP_Var name, PP_Var value, PP_Var* exception);
  void (*RemoveProperty)(PP_Var object, PP_Var name, PP_Var* exception);
  // A function object is called with an undefined method name; null raises an exception.
  PP_Var (*Call)(PP_Var object, PP_Var method, uint32_t argc, PP_Var* argv, PP_Var* exception);
  PP_Var (*Construct)(PP_Var object, uint32_t argc, PP_Var* argv, PP_Var* exception);
  bool (*IsInstanceOf)(PP_Var, const PPP_Class_Deprecated*, void** data);
  PP_Var (*CreateObject)(PP_Instance, const PPP_Class_Deprecated*, void* data);
  PP_Var (*CreateObjectWithModule)(PP_Module, const PPP_Class_Deprecated*, void* data);
};

#define PPB_INSTANCE_PRIVATE_INTERFACE_0_1 "PPB_Instance_Private;0.1"
struct PPB_Instance_Private_0_1 {
  PP_Var (*GetWindowObject)(PP_Instance);
  PP_Var (*GetOwnerElementObject)(PP_Instance);
  PP_Var (*ExecuteScript)(PP_Instance, PP_Var script, PP_Var* exception);
};

#define PPB_MEMORY_DEV_INTERFACE_0_1 "PPB_Memory(Dev);0.1"
struct PPB_Memory_Dev_0_1 {
  void* (*MemAlloc)(uint32_t bytes);
  void (*MemFree)(void*);
};

#define PPB_URLLOADER_INTERFACE_1_0 "PPB_URLLoader;1.0"
struct PPB_URLLoader_1_0 {
  PP_Resource (*Create)(PP_Instance);
  PP_Bool (*IsURLLoader)(PP_Resource);
  int32_t (*Open)(PP_Resource loader, PP_Resource request_info, PP_CompletionCallback);
  int32_t (*FollowRedirect)(PP_Resource, PP_CompletionCallback);
  PP_Bool (*GetUploadProgress)(PP_Resource, int64_t* sent, int64_t* total);
  PP_Bool (*GetDownloadProgress)(PP_Resource, int64_t* received, int64_t* total);
  PP_Resource (*GetResponseInfo)(PP_Resource);
  // Completes with the number of bytes read, 0 at the end.
  int32_t (*ReadResponseBody)(PP_Resource, void* buffer, int32_t bytes, PP_CompletionCallback);
  int32_t (*FinishStreamingToFile)(PP_Resource, PP_CompletionCallback);
  void (*Close)(PP_Resource);
};

enum PP_URLRequestProperty : int32_t {
  PP_URLREQUESTPROPERTY_URL = 0,                       // string
  PP_URLREQUESTPROPERTY_METHOD = 1,                    // string
  PP_URLREQUESTPROPERTY_HEADERS = 2,                   // string, lines split at "\n"
  PP_URLREQUESTPROPERTY_ALLOWCROSSORIGINREQUESTS = 8,  // bool
  PP_URLREQUESTPROPERTY_ALLOWCREDENTIALS = 9,          // bool
};

#define PPB_URLREQUESTINFO_INTERFACE_1_0 "PPB_URLRequestInfo;1.0"
struct PPB_URLRequestInfo_1_0 {
  PP_Resource (*Create)(PP_Instance);
  PP_Bool (*IsURLRequestInfo)(PP_Resource);
  PP_Bool (*SetProperty)(PP_Resource, int32_t property, PP_Var value);
  PP_Bool (*AppendDataToBody)(PP_Resource, const void* data, uint32_t len);
  PP_Bool (*AppendFileToBody)(PP_Resource, PP_Resource file_ref, int64_t offset, int64_t bytes,
                              PP_Time expected_last_modified);
};

enum PP_URLResponseProperty : int32_t {
  PP_URLRESPONSEPROPERTY_URL = 0,
  PP_URLRESPONSEPROPERTY_REDIRECTURL = 1,
  PP_URLRESPONSEPROPERTY_REDIRECTMETHOD = 2,
  PP_URLRESPONSEPROPERTY_STATUSCODE = 3,  // int32
  PP_URLRESPONSEPROPERTY_STATUSLINE = 4,  // the reason phrase alone
  PP_URLRESPONSEPROPERTY_HEADERS = 5,     // lines ended by "\n"
};

#define PPB_URLRESPONSEINFO_INTERFACE_1_0 "PPB_URLResponseInfo;1.0"
struct PPB_URLResponseInfo_1_0 {
  PP_Bool (*IsURLResponseInfo)(PP_Resource);
  PP_Var (*GetProperty)(PP_Resource, int32_t property);
  PP_Resource (*GetBodyAsFileRef)(PP_Resource);
};

#define PPB_URLLOADERTRUSTED_INTERFACE_0_3 "PPB_URLLoaderTrusted;0.3"
using PP_URLLoaderTrusted_StatusCallback = void (*)(PP_Instance, PP_Resource, int64_t, int64_t,
                                                    int64_t, int64_t);
struct PPB_URLLoaderTrusted_0_3 {
  void (*GrantUniversalAccess)(PP_Resource loader);
  void (*RegisterStatusCallback)(PP_Resource loader, PP_URLLoaderTrusted_StatusCallback);
};

// Fetched at start; the module calls no function of them.
#define PPB_VIEW_INTERFACE_1_1 "PPB_View;1.1"
#define PPB_VIEW_INTERFACE_1_0 "PPB_View;1.0"
#define PPB_INPUT_EVENT_INTERFACE_1_0 "PPB_InputEvent;1.0"
#define PPB_KEYBOARD_INPUT_EVENT_INTERFACE_1_0 "PPB_KeyboardInputEvent;1.0"
#define PPB_MOUSE_INPUT_EVENT_INTERFACE_1_1 "PPB_MouseInputEvent;1.1"
#define PPB_WHEEL_INPUT_EVENT_INTERFACE_1_0 "PPB_WheelInputEvent;1.0"
#define PPB_TOUCH_INPUT_EVENT_INTERFACE_1_0 "PPB_TouchInputEvent;1.0"

// Private to our own browser builds; a public browser has neither version.
#define PPB_PARL_PRIVATE_INTERFACE_1_0 "PPB_Parl_Private;1.0"
struct PPB_Parl_Private_1_0 {
  PP_Resource (*Create)(PP_Instance);
  int32_t (*GetPermission)(PP_Resource, PP_CompletionCallback);
};

using PPB_Parl_RemotingEvent_Func = void (*)(void* user_data, int32_t event);

#define PPB_PARL_PRIVATE_INTERFACE_2_0 "PPB_Parl_Private;2.0"
struct PPB_Parl_Private_2_0 {
  // Completes with 1 when the permission was granted.
  int32_t (*RequestPermission)(PP_Instance, int32_t kind, PP_CompletionCallback);
  int32_t (*StartRemoting)(PP_Instance, PPB_Parl_RemotingEvent_Func, void* user_data,
                           PP_CompletionCallback);
  int32_t (*StopRemoting)(PP_Instance, PP_CompletionCallback);
};

// ---- Entry points the module exports ----

int32_t PPP_InitializeModule(PP_Module module, PPB_GetInterface get_browser_interface);
const void* PPP_GetInterface(const char* interface_name);
void PPP_ShutdownModule(void);

}  // extern "C"

static_assert(sizeof(bool) == 1 && sizeof(PP_Bool) == 4 && sizeof(void*) == 8);
static_assert(sizeof(PP_Var) == 16 && offsetof(PP_Var, padding) == 4 &&
              offsetof(PP_Var, value) == 8);
static_assert(sizeof(PP_CompletionCallback) == 24 &&
              offsetof(PP_CompletionCallback, user_data) == 8 &&
              offsetof(PP_CompletionCallback, flags) == 16);
static_assert(sizeof(PPP_Instance_1_1) == 40 && sizeof(PPP_Messaging_1_0) == 8 &&
              sizeof(PPP_InputEvent_0_1) == 8 && sizeof(PPP_Instance_Private_0_1) == 8);
static_assert(sizeof(PPB_Core_1_0) == 48 && offsetof(PPB_Core_1_0, CallOnMainThread) == 32);
static_assert(sizeof(PPB_Var_1_1) == 32 && sizeof(PPB_Var_1_0) == 32);
static_assert(sizeof(PPP_Class_Deprecated) == 72 && offsetof(PPP_Class_Deprecated, Call) == 48);
static_assert(sizeof(PPB_Var_Deprecated_0_3) == 120 &&
              offsetof(PPB_Var_Deprecated_0_3, Call) == 80 &&
              offsetof(PPB_Var_Deprecated_0_3, CreateObject) == 104);
static_assert(sizeof(PPB_Instance_Private_0_1) == 24 && sizeof(PPB_Memory_Dev_0_1) == 16);
static_assert(sizeof(PPB_URLLoader_1_0) == 80 &&
              offsetof(PPB_URLLoader_1_0, ReadResponseBody) == 56);
static_assert(sizeof(PPB_URLRequestInfo_1_0) == 40 && sizeof(PPB_URLResponseInfo_1_0) == 24);
static_assert(sizeof(PPB_URLLoaderTrusted_0_3) == 16);
static_assert(sizeof(PPB_Parl_Private_1_0) == 16 && sizeof(PPB_Parl_Private_2_0) == 24);

#endif  // MPBP_ABI_BROWSER_ABI_H_
