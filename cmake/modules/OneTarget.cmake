# A build folder is made for one target. CMake reads the toolchain file and
# the compilers (CMAKE_TOOLCHAIN_FILE, CC, CXX) on a folder's first configure
# only, and afterwards keeps what it found without a word: the firmware
# recipe run for armhf in a folder made for the build machine would build and
# stage the wrong library. So a configure that asks for another target than
# the folder's is refused. Asking for nothing is asking for the folder's own:
# the configure that ninja runs after a change to the build files, in a
# shell without the recipe's variables, goes through. Included after
# project(), so that a first configure that failed leaves nothing recorded.

# A toolchain file's or a compiler's path as CMake resolves it: a toolchain
# file from the build folder, else the source folder; a compiler on the PATH.
function(linkward_real_path kind file out)
  if(kind STREQUAL "compiler" AND NOT IS_ABSOLUTE "${file}")
    find_program(linkward_found "${file}" NO_CACHE)
    set(file "${linkward_found}")
  elseif(file AND NOT IS_ABSOLUTE "${file}")
    if(EXISTS "${CMAKE_BINARY_DIR}/${file}")
      set(file "${CMAKE_BINARY_DIR}/${file}")
    else()
      set(file "${CMAKE_SOURCE_DIR}/${file}")
    endif()
  endif()
  if(file)
    get_filename_component(file "${file}" REALPATH)
  endif()
  set(${out} "${file}" PARENT_SCOPE)
endfunction()

# Whether CC (or CXX) names the compiler and flags the folder has for the
# language; false when it is not set.
function(linkward_names_compiler variable language out)
  set(${out} FALSE PARENT_SCOPE)
  if(DEFINED ENV{${variable}})
    separate_arguments(flags UNIX_COMMAND "$ENV{${variable}}")
    list(POP_FRONT flags compiler)
    linkward_real_path(compiler "${compiler}" compiler)
    linkward_real_path(compiler "${CMAKE_${language}_COMPILER}" made_with)
    separate_arguments(made_with_flags UNIX_COMMAND
      "${CMAKE_${language}_COMPILER_ARG1}")
    if(compiler STREQUAL made_with AND flags STREQUAL made_with_flags)
      set(${out} TRUE PARENT_SCOPE)
    endif()
  endif()
endfunction()

function(linkward_refuse_another_target)
  set(variables CC CXX)
  set(languages C CXX)
  linkward_real_path(toolchain "${CMAKE_TOOLCHAIN_FILE}" toolchain)
  # CC and CXX choose the compilers where no toolchain file does: where there
  # is none, or where they named the compilers the folder was made with.
  if(NOT DEFINED CACHE{LINKWARD_TARGET_TOOLCHAIN})
    set(LINKWARD_TARGET_TOOLCHAIN "${toolchain}" CACHE INTERNAL
      "The toolchain file the folder was made with")
    foreach(variable language IN ZIP_LISTS variables languages)
      linkward_names_compiler(${variable} ${language} named)
      set(chosen FALSE)
      if(NOT toolchain OR named)
        set(chosen TRUE)
      endif()
      set(LINKWARD_TARGET_${variable}_CHOOSES ${chosen} CACHE INTERNAL
        "Whether ${variable} chose the folder's compiler")
    endforeach()
    return()
  endif()

  # What this configure asks for that the folder was not made with: another
  # toolchain file (by -D, which is in the cache already, or the
  # environment), or a CC or CXX naming another compiler or other flags.
  set(asked "")
  if(DEFINED ENV{CMAKE_TOOLCHAIN_FILE})
    linkward_real_path(toolchain "$ENV{CMAKE_TOOLCHAIN_FILE}" env_toolchain)
    if(NOT env_toolchain STREQUAL LINKWARD_TARGET_TOOLCHAIN)
      list(APPEND asked "the toolchain file '${env_toolchain}'")
    endif()
  endif()
  if(NOT toolchain STREQUAL LINKWARD_TARGET_TOOLCHAIN)
    list(APPEND asked "the toolchain file '${toolchain}'")
  endif()
  foreach(variable language IN ZIP_LISTS variables languages)
    linkward_names_compiler(${variable} ${language} named)
    if(DEFINED ENV{${variable}} AND LINKWARD_TARGET_${variable}_CHOOSES AND
       NOT named)
      list(APPEND asked "${variable}='$ENV{${variable}}'")
    endif()
  endforeach()

  if(asked)
    set(made_with "no toolchain file")
    if(LINKWARD_TARGET_TOOLCHAIN)
      set(made_with "the toolchain file '${LINKWARD_TARGET_TOOLCHAIN}'")
    endif()
    list(JOIN asked " and " asked)
    message(FATAL_ERROR "${CMAKE_BINARY_DIR} was configured with ${made_with}, "
      "the C compiler '${CMAKE_C_COMPILER}${CMAKE_C_COMPILER_ARG1}' and the C++ "
      "compiler '${CMAKE_CXX_COMPILER}${CMAKE_CXX_COMPILER_ARG1}'; this configure "
      "asks for ${asked}. Use another build folder, or remove this one.")
  endif()
endfunction()
linkward_refuse_another_target()
