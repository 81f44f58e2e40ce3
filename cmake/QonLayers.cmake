# qon_sources( <variable> <folder> ): every .cc below the folder, without the programs' *Main.cc.
function( qon_sources variable folder )
   file( GLOB_RECURSE found CONFIGURE_DEPENDS ${folder}/*.cc )
   list( FILTER found EXCLUDE REGEX "Main\\.cc$" )
   set( ${variable} ${found} PARENT_SCOPE )
endfunction()

# qon_program( <name> <main file> <libraries...> ): an executable, if its main file exists.
function( qon_program name main )
   file( GLOB present CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${main} )
   if( NOT present )
      return()
   endif()
   add_executable( ${name} ${present} )
   target_link_libraries( ${name} PRIVATE qonflags ${ARGN} )
   qon_lightly_optimized( ${name} )
endfunction()
