# What every target of this project is compiled with. Kept off the exported target: a user's flags are the user's.
add_library(qv_build_flags INTERFACE)
target_compile_options(qv_build_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror=return-type -ffp-contract=off)
if(QV_SANITIZE)
  target_compile_options(qv_build_flags INTERFACE -fsanitize=${QV_SANITIZE} -fno-omit-frame-pointer -g1)
  target_link_options(qv_build_flags INTERFACE -fsanitize=${QV_SANITIZE})
  if(QV_SANITIZE MATCHES "undefined")
    target_compile_options(qv_build_flags INTERFACE -fno-sanitize-recover=undefined)
  endif()
endif()
if(QV_BUILD_FUZZERS)
  # The fuzzer is led by what it covers, and that is the library, not the few lines of a target.
  target_compile_options(qv_build_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()
