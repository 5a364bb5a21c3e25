# PMX_SANITIZE: "address" (ASan + UBSan), "thread" (TSan) or "fuzzer"
# (libFuzzer instrumentation with ASan + UBSan, clang only); empty for none.
set(PMX_SANITIZE "" CACHE STRING "Sanitizer set: address or thread")
if(PMX_SANITIZE STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
elseif(PMX_SANITIZE STREQUAL "fuzzer")
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer
                      -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
elseif(PMX_SANITIZE STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
endif()
