# One interface target carries every flag of our own code, so that consumers never inherit them.
add_library(zelto_build_flags INTERFACE)
target_compile_options(zelto_build_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wformat=2 -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  # Under the same names clang warns of more than g++: of changes of sign, and of formats that a
  # function hands on together with its va_list.
  target_compile_options(zelto_build_flags INTERFACE -Wno-sign-conversion -Wno-format-nonliteral)
endif()
