# Deployment data: the hosts whose pages are served, the host that takes log uploads, and the ids of the
# browser extension. This is the one place that sets them; a deployment overrides them with -D on the
# cmake command line.
set(MPBP_STANDARD_HOSTS
    "parl.murmel.example;meet.murmel.example;mail.murmel.example;chat.murmel.example;calls.murmel.example;www.murmel.example"
    CACHE STRING "The 6 hosts whose pages are always served, over https")
set(MPBP_CORP_DOMAINS
    "corp.murmel.example;dev.murmel.example;test.murmel.example;lab.murmel.example"
    CACHE STRING "The 4 domains whose hosts are served when plugin_enable_corp_host is set")
set(MPBP_CRASH_REPORT_HOST "crash.murmel.example" CACHE STRING "The host that takes log uploads")
# The hosts that the engine's HTTP requests may go to by way of the extension, each with the hosts below
# it. Not in the cache unless it was given, so that it follows the lists above.
if(NOT DEFINED MPBP_REQUEST_HOSTS)
  set(MPBP_REQUEST_HOSTS ${MPBP_STANDARD_HOSTS} ${MPBP_CORP_DOMAINS} ${MPBP_CRASH_REPORT_HOST})
endif()

# Chromium derives the extension's id from the key: base64 of a DER public key, whose private half
# nobody has. extension/README.md says how a deployment makes its own; key and id go together.
set(MPBP_CHROMIUM_EXTENSION_KEY
    "MIIBIjANBgkqhkiG9w0BAQEFAAOCAQ8AMIIBCgKCAQEArxp/dcexCiCC23rmkob61ZOp4TRToFacZTGg5Nw+79L/UgPp3KA5G0518HsyvxZDCm4n3uY7jSpN41hn8ueskloYQSmMyGwRPoI9gRaGpr2Xp3JzGz+T1g5txfWnsh+YF3OwQcl1wke4BCJcyeXFZ1RwoU7mIXSfXJIxCS2HgFLi+QknibCJu3CpL9JSSW0/TtFhymW9mwZhx9iz1o7iLJ5Wm93K3kXSdkZEtftTkogaWKHRKwUdqE6cKbpIRmzmoFRORjKy6yTAOAawVvCaQ8MZjhEhK4aHNij3JA0iVb8i2Tw9qEtlGY0MINfHWYCMWSxYA9+DJikFoPL/yYq0vQIDAQAB"
    CACHE STRING "The extension's public key for Chromium")
set(MPBP_CHROMIUM_EXTENSION_ID "lkjfmnnjjlgiladkfkhnjppciemcbgme"
    CACHE STRING "The extension's id in Chromium, which follows from the key")
set(MPBP_GECKO_EXTENSION_ID "parl@murmel.example" CACHE STRING "The extension's id in Firefox")

# Checks that the list holds exactly `count` host names and turns it into C++ string literals.
function(mpbp_host_literals list_name count prefix out)
  set(hosts ${${list_name}})
  list(LENGTH hosts length)
  if(NOT length EQUAL count)
    message(FATAL_ERROR "${list_name} must hold exactly ${count} entries, it holds ${length}")
  endif()
  set(literals "")
  foreach(host IN LISTS hosts)
    if(NOT host MATCHES "^[A-Za-z0-9]([A-Za-z0-9.-]*[A-Za-z0-9])?$")
      message(FATAL_ERROR "${list_name}: \"${host}\" is not a host name")
    endif()
    list(APPEND literals "\"${prefix}${host}\"")
  endforeach()
  list(JOIN literals ", " literals)
  set(${out} "${literals}" PARENT_SCOPE)
endfunction()

mpbp_host_literals(MPBP_STANDARD_HOSTS 6 "*" MPBP_STANDARD_HOST_LITERALS)
mpbp_host_literals(MPBP_CORP_DOMAINS 4 "*." MPBP_CORP_HOST_LITERALS)
mpbp_host_literals(MPBP_CRASH_REPORT_HOST 1 "" MPBP_CRASH_REPORT_HOST_LITERAL)
configure_file(${CMAKE_CURRENT_LIST_DIR}/deployment.h.in
               ${CMAKE_BINARY_DIR}/generated/deployment.h @ONLY)
