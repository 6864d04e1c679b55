# Compiler options that every target of the project shares.
add_library(tq_options INTERFACE)
target_include_directories(tq_options INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(tq_options INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
target_compile_definitions(tq_options INTERFACE TQ_VERSION="${PROJECT_VERSION}")
if(TQ_FUZZ)
  target_compile_options(tq_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
if(TQ_SANITIZE OR TQ_FUZZ)
  # The sanitizers' own code makes GCC warn falsely about uninitialised variables (its manual says so).
  target_compile_options(tq_options INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  target_compile_options(tq_options INTERFACE -O1 -fsanitize=address,undefined -fno-sanitize-recover=all
                                              -fno-omit-frame-pointer)
  target_link_options(tq_options INTERFACE -fsanitize=address,undefined)
endif()

# tq_layer(NAME SOURCES... [LINKS lower layers...]): the static library of one folder.
function(tq_layer name)
  cmake_parse_arguments(LAYER "" "" "SOURCES;LINKS" ${ARGN})
  if(LAYER_SOURCES)
    add_library(tq_${name} STATIC ${LAYER_SOURCES})
    target_link_libraries(tq_${name} PUBLIC tq_options ${LAYER_LINKS})
  else()
    add_library(tq_${name} INTERFACE)
    target_link_libraries(tq_${name} INTERFACE tq_options ${LAYER_LINKS})
  endif()
endfunction()
