# One sanitizer for the whole build, so that library, tests and benchmarks
# agree on the runtime they link. Undefined behaviour is fatal (no
# recovery), so a test or fuzzer that meets it fails instead of printing.
if(WAVORYX_FUZZ)
  # The fuzzers' build: everything instrumented for libFuzzer's coverage,
  # with AddressSanitizer (LeakSanitizer included) and UBSan.
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "WAVORYX_FUZZ needs clang (e.g. CC=clang-14 CXX=clang++-14)")
  endif()
  if(NOT WAVORYX_SANITIZER STREQUAL "")
    message(FATAL_ERROR "WAVORYX_FUZZ brings its own sanitizers: leave WAVORYX_SANITIZER empty")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer
                      -fno-sanitize-recover=all)
  add_link_options(-fsanitize=address,undefined)
endif()
if(WAVORYX_SANITIZER STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=address,undefined)
elseif(WAVORYX_SANITIZER STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
elseif(NOT WAVORYX_SANITIZER STREQUAL "")
  message(FATAL_ERROR "WAVORYX_SANITIZER must be address, thread or empty")
endif()
