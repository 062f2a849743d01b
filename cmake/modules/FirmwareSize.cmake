# The size-optimised build (MinSizeRel) is what firmware ships. On top of -Os
# it links the library with link-time optimisation and drops every section
# nothing reaches. The library's own calls to its exported functions bind
# inside it (-Bsymbolic-functions): the firmware does not interpose them, and
# binding them early spares their PLT slots and lets the optimiser inline
# them. Data keeps default binding, so an executable's copy of a default
# instance stays the one the library uses. zig's linker front end (the musl
# build) refuses the option; there those calls go through the PLT.
include(CheckIPOSupported)
include(CheckLinkerFlag)
check_linker_flag(CXX -Wl,-Bsymbolic-functions LINKWARD_BSYMBOLIC_FUNCTIONS)

function(linkward_optimise_for_size target)
  set(size_build $<CONFIG:MinSizeRel>)
  target_compile_options(${target} PRIVATE
    $<${size_build}:-ffunction-sections -fdata-sections>)
  # The runtime's checks name their source file: named from the source,
  # build and sysroot folders rather than from the root, they take less room
  # and do not tell where the library was built.
  set(folders ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR} ${LINKWARD_SYSROOT})
  foreach(folder IN LISTS folders)
    target_compile_options(${target} PRIVATE -fmacro-prefix-map=${folder}/=)
  endforeach()
  target_link_options(${target} PRIVATE $<${size_build}:-Wl,--gc-sections>)
  if(LINKWARD_BSYMBOLIC_FUNCTIONS)
    target_link_options(${target} PRIVATE $<${size_build}:-Wl,-Bsymbolic-functions>)
  endif()
  check_ipo_supported(RESULT lto_supported LANGUAGES CXX)
  if(lto_supported)
    set_property(TARGET ${target} PROPERTY INTERPROCEDURAL_OPTIMIZATION_MINSIZEREL ON)
  endif()
endfunction()
