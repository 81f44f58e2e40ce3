# How everything of ours is compiled. Third-party code (GoogleTest from source) is not touched.

find_program( QON_CCACHE ccache )
if( QON_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER )
   # Paths below the source folder count as relative, so that checkouts share one cache; the
   # sloppiness is what precompiled headers need.
   set( CMAKE_CXX_COMPILER_LAUNCHER
        ${CMAKE_COMMAND} -E env CCACHE_BASEDIR=${CMAKE_SOURCE_DIR} CCACHE_NOHASHDIR=1
        CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime
        ${QON_CCACHE} )
endif()

add_library( qonflags INTERFACE )
# Executables export their symbols, so that backtraces show the names of functions.
target_link_options( qonflags INTERFACE -rdynamic )
# __FILE__ and debug information name files from the repository's root; the compiler sees their
# paths relative to the build folder when it runs below ccache.
file( RELATIVE_PATH upwards ${CMAKE_BINARY_DIR} ${CMAKE_SOURCE_DIR} )
target_compile_options( qonflags INTERFACE
   -Wall -Wextra $<$<BOOL:${QON_WERROR}>:-Werror>
   -ffile-prefix-map=${CMAKE_SOURCE_DIR}/= -ffile-prefix-map=${upwards}= )
if( CMAKE_CXX_COMPILER_ID STREQUAL GNU )
   target_compile_options( qonflags INTERFACE -fpch-preprocess )
endif()

# What nearly every file includes of the standard library, precompiled: qon_precompiled( <target> ).
function( qon_precompiled target )
   target_precompile_headers( ${target} PRIVATE <algorithm> <functional> <map> <memory> <set> <string>
                                                <vector> ${ARGN} )
endfunction()

# Programs that are built to be run once or twice, such as tests: what is optimized in them does not
# earn back the time that it takes; nor does what a third of the compiler's time goes into below the
# sanitizers, and a crash would show anyway. The libraries below them are as they are for everybody.
function( qon_lightly_optimized target )
   target_compile_options( ${target} PRIVATE $<$<CONFIG:Release,Asan>:-O0>
                                             $<$<CONFIG:Asan>:-fno-sanitize=null,alignment> )
endfunction()
