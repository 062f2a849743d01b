# A build folder is made for one target. CMake reads the toolchain file and
# the compilers (CMAKE_TOOLCHAIN_FILE, CC, CXX) on a folder's first configure
# only, and afterwards keeps what it found without a word: the firmware
# recipe run for armhf in a folder made for the build machine would build and
# stage the wrong library. So a configure that asks for another target than
# the folder's is refused. Included before project().

# The toolchain file as CMake reads it: a relative path from the build
# folder, else from the source folder.
function(linkward_toolchain_path file out)
  if(file AND NOT IS_ABSOLUTE "${file}")
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

linkward_toolchain_path("${CMAKE_TOOLCHAIN_FILE}" linkward_asked_toolchain)
if(DEFINED ENV{CMAKE_TOOLCHAIN_FILE})
  linkward_toolchain_path("$ENV{CMAKE_TOOLCHAIN_FILE}" linkward_env_toolchain)
endif()

if(NOT DEFINED CACHE{LINKWARD_TARGET_TOOLCHAIN})
  set(LINKWARD_TARGET_TOOLCHAIN "${linkward_asked_toolchain}" CACHE INTERNAL
    "The toolchain file the folder was made with")
  set(LINKWARD_TARGET_TOOLCHAIN_FROM_ENV "${linkward_env_toolchain}" CACHE
    INTERNAL "Whether it came from the environment")
  foreach(compiler CC CXX)
    set(LINKWARD_TARGET_${compiler} "$ENV{${compiler}}" CACHE INTERNAL
      "${compiler} when the folder was made")
  endforeach()
  return()
endif()

function(linkward_describe_toolchain file out)
  if(file)
    set(${out} "the toolchain file '${file}'" PARENT_SCOPE)
  else()
    set(${out} "no toolchain file" PARENT_SCOPE)
  endif()
endfunction()

# A toolchain file given with -D is in the cache already; one in the
# environment is not. A folder made with one from the environment wants it
# there every time.
set(linkward_other_target "")
if(NOT linkward_asked_toolchain STREQUAL LINKWARD_TARGET_TOOLCHAIN)
  linkward_describe_toolchain("${linkward_asked_toolchain}" linkward_other_target)
elseif(DEFINED linkward_env_toolchain AND
       NOT linkward_env_toolchain STREQUAL LINKWARD_TARGET_TOOLCHAIN)
  linkward_describe_toolchain("${linkward_env_toolchain}" linkward_other_target)
elseif(NOT DEFINED linkward_env_toolchain AND LINKWARD_TARGET_TOOLCHAIN_FROM_ENV)
  linkward_describe_toolchain("" linkward_other_target)
endif()
foreach(compiler CC CXX)
  if(DEFINED ENV{${compiler}} AND
     NOT "$ENV{${compiler}}" STREQUAL LINKWARD_TARGET_${compiler})
    set(linkward_other_target "${compiler}='$ENV{${compiler}}'")
  endif()
endforeach()
if(linkward_other_target)
  linkward_describe_toolchain("${LINKWARD_TARGET_TOOLCHAIN}" linkward_made_for)
  foreach(compiler CC CXX)
    if(LINKWARD_TARGET_${compiler})
      string(APPEND linkward_made_for
        ", ${compiler}='${LINKWARD_TARGET_${compiler}}'")
    endif()
  endforeach()
  message(FATAL_ERROR "${CMAKE_BINARY_DIR} was configured with "
    "${linkward_made_for}; this configure asks for ${linkward_other_target}. "
    "Use another build folder, or remove this one.")
endif()
