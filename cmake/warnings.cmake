# Warnings are errors in everything that is written here; what others wrote is included as a system header.
add_library(quarvel_warnings INTERFACE)
target_compile_options(quarvel_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Werror
  -Wconversion -Wsign-conversion -Wdouble-promotion -Wfloat-conversion
  -Wshadow -Wold-style-cast -Wuseless-cast -Wcast-qual -Wcast-align
  -Wformat=2 -Wundef -Wnon-virtual-dtor -Woverloaded-virtual -Wnull-dereference
  -Wduplicated-cond -Wduplicated-branches -Wlogical-op -Wextra-semi)
if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  get_target_property(options quarvel_warnings INTERFACE_COMPILE_OPTIONS)
  # Clang lacks these, or, of -Wdouble-promotion, also means double to long double, which loses nothing.
  list(REMOVE_ITEM options -Wdouble-promotion -Wuseless-cast -Wduplicated-cond -Wduplicated-branches -Wlogical-op)
  set_target_properties(quarvel_warnings PROPERTIES INTERFACE_COMPILE_OPTIONS "${options}")
endif()
