# One sanitizer for the whole build, so that library, tests and benchmarks
# agree on the runtime they link.
if(WAVORYX_SANITIZER STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
elseif(WAVORYX_SANITIZER STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
elseif(NOT WAVORYX_SANITIZER STREQUAL "")
  message(FATAL_ERROR "WAVORYX_SANITIZER must be address, thread or empty")
endif()
