# SPDX-License-Identifier: Apache-2.0
# Flags. kelnn_flags is for everything here, kelnn_library_flags for what ships in libkelnn.so.

add_library(kelnn_flags INTERFACE)
target_compile_options(kelnn_flags INTERFACE -Wall -Wextra $<$<BOOL:${KEL_NN_WERROR}>:-Werror>)
# a * b + c is two roundings on every target, also where one instruction could do both.
target_compile_options(kelnn_flags INTERFACE -ffp-contract=off)

add_library(kelnn_library_flags INTERFACE)
target_link_libraries(kelnn_library_flags INTERFACE kelnn_flags)
# A section for each function and variable, so that what nobody calls is left out where the library is linked.
target_compile_options(kelnn_library_flags INTERFACE
  -ffunction-sections -fdata-sections
  -fvisibility=hidden -fPIC $<$<COMPILE_LANGUAGE:CXX>:-fvisibility-inlines-hidden -fno-exceptions -fno-rtti>)
# Old C libraries hide INT32_MAX and the like from C++ without this.
target_compile_definitions(kelnn_library_flags INTERFACE __STDC_LIMIT_MACROS)
# Nothing is thrown through the library. On a PC the tables stay, for debuggers and sanitizers to walk the stack with.
if(KEL_NN_SMALL)
  target_compile_options(kelnn_library_flags INTERFACE -fno-unwind-tables -fno-asynchronous-unwind-tables)
endif()

# Whether the sanitizers are built in; what is installed is not for strangers then.
set(kelnn_sanitized OFF)
if(CMAKE_CXX_FLAGS MATCHES "-fsanitize")
  set(kelnn_sanitized ON)
endif()

# What ships is hardened; docs/security.md says why the board's build has no more than the linker's part.
set(kelnn_hardened_link -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
target_link_options(kelnn_flags INTERFACE ${kelnn_hardened_link})
if(NOT KEL_NN_SMALL AND NOT kelnn_sanitized)
  target_compile_options(kelnn_flags INTERFACE -fstack-protector-strong
    $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE> $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
endif()

# A shared library must name all it needs, except what Clang's sanitizers bring along with the program.
set(kelnn_no_undefined -Wl,--no-undefined)
if(kelnn_sanitized AND CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  set(kelnn_no_undefined "")
endif()
