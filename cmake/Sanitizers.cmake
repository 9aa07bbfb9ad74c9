if(ZELTO_SANITIZE)
  target_compile_options(zelto_build_flags INTERFACE
    -fsanitize=${ZELTO_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(zelto_build_flags INTERFACE -fsanitize=${ZELTO_SANITIZE})
endif()
if(ZELTO_COVERAGE)
  target_compile_options(zelto_build_flags INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(zelto_build_flags INTERFACE --coverage)
endif()
