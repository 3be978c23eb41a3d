# Flags. kelnn_flags is for everything here, kelnn_library_flags for what ships in libkelnn.so.

add_library(kelnn_flags INTERFACE)
target_compile_options(kelnn_flags INTERFACE -Wall -Wextra $<$<BOOL:${KEL_NN_WERROR}>:-Werror>)
# a * b + c is two roundings on every target, also where one instruction could do both.
target_compile_options(kelnn_flags INTERFACE -ffp-contract=off)

add_library(kelnn_library_flags INTERFACE)
target_link_libraries(kelnn_library_flags INTERFACE kelnn_flags)
target_compile_options(kelnn_library_flags INTERFACE
  -fvisibility=hidden -fPIC $<$<COMPILE_LANGUAGE:CXX>:-fvisibility-inlines-hidden -fno-exceptions -fno-rtti>)
# Old C libraries hide INT32_MAX and the like from C++ without this.
target_compile_definitions(kelnn_library_flags INTERFACE __STDC_LIMIT_MACROS)
