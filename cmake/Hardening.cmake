# A privileged tool gets what the compiler and the linker can add against memory errors.
target_compile_options(zelto_build_flags INTERFACE -fstack-protector-strong)
if(CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64")
  target_compile_options(zelto_build_flags INTERFACE -fcf-protection)
endif()
if(NOT ZELTO_SANITIZE AND NOT ZELTO_COVERAGE)
  # Fortified calls need an optimised build and hide errors from the sanitizers.
  target_compile_definitions(zelto_build_flags INTERFACE
    $<$<CONFIG:Release,RelWithDebInfo>:_FORTIFY_SOURCE=2>)
endif()
target_compile_definitions(zelto_build_flags INTERFACE $<$<CONFIG:Debug>:_GLIBCXX_ASSERTIONS>)
target_link_options(zelto_build_flags INTERFACE -Wl,-z,relro,-z,now -Wl,--as-needed)
