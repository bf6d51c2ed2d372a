# SPDX-License-Identifier: GPL-2.0-only
# Programs for a device are static and use only header-only libraries.
add_link_options(-static -s)

find_package(CLI11 REQUIRED)
find_package(nlohmann_json REQUIRED)
# The host's {fmt} package expects the host's library; its headers also work without it.
find_path(FMT_HEADERS fmt/format.h REQUIRED)
add_library(device_fmt INTERFACE)
target_include_directories(device_fmt SYSTEM INTERFACE ${FMT_HEADERS})
target_compile_definitions(device_fmt INTERFACE FMT_HEADER_ONLY)
add_library(fmt::fmt ALIAS device_fmt)

add_subdirectory(tools/tarnctl)
if(EXISTS ${PROJECT_SOURCE_DIR}/lab/programs/CMakeLists.txt)
  add_subdirectory(lab/programs)
endif()
