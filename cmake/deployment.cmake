# Deployment data: the hosts whose pages are served and the host that takes log uploads. This is the
# one place that sets them; a deployment overrides them with -D on the cmake command line.
set(MPBP_STANDARD_HOSTS
    "parl.murmel.example;meet.murmel.example;mail.murmel.example;chat.murmel.example;calls.murmel.example;www.murmel.example"
    CACHE STRING "The 6 hosts whose pages are always served, over https")
set(MPBP_CORP_DOMAINS
    "corp.murmel.example;dev.murmel.example;test.murmel.example;lab.murmel.example"
    CACHE STRING "The 4 domains whose hosts are served when plugin_enable_corp_host is set")
set(MPBP_CRASH_REPORT_HOST "crash.murmel.example" CACHE STRING "The host that takes log uploads")

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
