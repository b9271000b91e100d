# tolvenra_flags: what every target of the project is compiled with.
#
# Results must not depend on the machine: no fused multiply-add (guards close to the limits of
# double precision count on plain arithmetic), no -ffast-math, no -march.
add_library(tolvenra_flags INTERFACE)
target_compile_options(tolvenra_flags INTERFACE -ffp-contract=off -Wall -Wextra -Wpedantic
                       -Wconversion -Wshadow)
if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
  # What GCC means by -Wconversion in C++.
  target_compile_options(tolvenra_flags INTERFACE -Wno-sign-conversion)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # GCC 12 warns of its own std::string at -O2 (its bug 105651).
  target_compile_options(tolvenra_flags INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wno-restrict>)
endif()
if(TOLVENRA_WERROR)
  target_compile_options(tolvenra_flags INTERFACE -Werror)
endif()

set(CMAKE_C_FLAGS_RELEASE "-O3 -DNDEBUG")
set(CMAKE_CXX_FLAGS_RELEASE "-O3 -DNDEBUG")
set(CMAKE_C_FLAGS_DEBUG "-Og -g")
set(CMAKE_CXX_FLAGS_DEBUG "-Og -g -D_GLIBCXX_ASSERTIONS")
# Assertions stay on: this build type serves the sanitizers; -g1 keeps the lines of their reports.
set(CMAKE_C_FLAGS_RELWITHDEBINFO "-O1 -g1 -fno-omit-frame-pointer")
set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O1 -g1 -fno-omit-frame-pointer")

# optimise_for_building(): for directories whose code is not where the time goes; their templates
# take half as long to compile.
macro(optimise_for_building)
  string(REPLACE "-O3" "-O1" CMAKE_CXX_FLAGS_RELEASE "${CMAKE_CXX_FLAGS_RELEASE}")
  string(REPLACE "-O1" "-O0" CMAKE_CXX_FLAGS_RELWITHDEBINFO "${CMAKE_CXX_FLAGS_RELWITHDEBINFO}")
  if(TOLVENRA_SANITIZE MATCHES undefined)
    add_compile_options(-fno-sanitize=undefined)
  endif()
endmacro()

# Sanitizers and coverage have to reach every object and every link of the tree.
if(TOLVENRA_SANITIZE)
  add_compile_options(-fsanitize=${TOLVENRA_SANITIZE} -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${TOLVENRA_SANITIZE})
endif()
if(TOLVENRA_COVERAGE)
  add_compile_options(--coverage)
  add_link_options(--coverage)
endif()
