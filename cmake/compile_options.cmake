# Warnings, hardening and sanitizers, the same for everything that is built here.
add_compile_options(-Wall -Wextra -Werror -Wnon-virtual-dtor -Woverloaded-virtual -Wshadow
                    -ffile-prefix-map=${CMAKE_SOURCE_DIR}/=)
if(MPBP_SANITIZE)
  add_compile_options(-fsanitize=${MPBP_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${MPBP_SANITIZE})
else()
  add_compile_options(-fstack-protector-strong -fstack-clash-protection -fcf-protection)
  if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
    add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
  endif()
  add_link_options(-Wl,-z,relro,-z,now,-z,noexecstack)
endif()
# Unique symbols would keep the module mapped for ever after it was unloaded.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  add_compile_options(-fno-gnu-unique)
endif()
