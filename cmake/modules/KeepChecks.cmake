# The message code and the codec keep their runtime checks and assertions in
# every build type: a violated check must stop the call, also in the builds
# that ship. CMake's optimised build types add -DNDEBUG, which would remove
# GOOGLE_DCHECK and assert; take it out again.
foreach(lang C CXX)
  foreach(config RELEASE RELWITHDEBINFO MINSIZEREL)
    set(var CMAKE_${lang}_FLAGS_${config})
    string(REGEX REPLACE "(^| )-DNDEBUG($| )" " " ${var} "${${var}}")
  endforeach()
endforeach()
