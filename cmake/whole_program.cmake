# SPDX-License-Identifier: GPL-2.0-only
# Links everything that can share a process into a program that is never run: at this link GCC
# compares the sources' definitions of each type and symbol. The libraries' objects are listed
# explicitly, since a link takes only the objects it needs from an archive.
file(GLOB command_sources CONFIGURE_DEPENDS tools/tarnctl/command/*.cpp)
# It defines nothing but a copy of the module, whose objects are there themselves.
list(FILTER command_sources EXCLUDE REGEX embedded_module)
add_executable(whole_program EXCLUDE_FROM_ALL ${command_sources}
  kernel/hosted/engine/module_entry.cpp
  $<TARGET_OBJECTS:hosted_kernel> $<TARGET_OBJECTS:hosted_platform> $<TARGET_OBJECTS:module_objects>
  $<TARGET_OBJECTS:tarnctl_terminal> $<TARGET_OBJECTS:tarnctl_device> $<TARGET_OBJECTS:tarnctl_cma>
  $<TARGET_OBJECTS:tarnctl_trace> $<TARGET_OBJECTS:tarnctl_hunt> $<TARGET_OBJECTS:tarnctl_text>
  $<TARGET_OBJECTS:tarnctl_ledger>)
target_compile_definitions(whole_program PRIVATE TARN_VERSION="${PROJECT_VERSION}")
target_link_libraries(whole_program PRIVATE tarnctl_hunt tarnctl_cma hosted_headers CLI11::CLI11)
