# One interface target carries every flag of our own code, so that consumers never inherit them.
add_library(zelto_build_flags INTERFACE)
target_compile_options(zelto_build_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wformat=2 -Werror)
