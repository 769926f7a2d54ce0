# Compiler settings shared by every target of the project.

if(ZNDVR_SANITIZE STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
elseif(ZNDVR_SANITIZE STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
elseif(NOT ZNDVR_SANITIZE STREQUAL "")
  message(FATAL_ERROR "ZNDVR_SANITIZE must be empty, 'address' or 'thread'")
endif()

# libFuzzer is guided by the coverage of the library's code, not only of the targets.
if(ZNDVR_BUILD_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
  add_link_options(-fsanitize=fuzzer-no-link)
endif()

function(zndvr_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wshadow)
endfunction()
