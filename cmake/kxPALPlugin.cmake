# murn_add_plugin(name source...)
#
# Makes a plug-in: the shared object <name>.so, without a "lib" in front, which Murn::Plugin::Load() opens. One of the
# sources has MURN_PLUGIN(Class) in it. The target is called as the plug-in, so that folders, libraries and compile
# options can be set on it as on any other.
function(murn_add_plugin name)
  if(ARGC LESS 2)
    message(FATAL_ERROR "murn_add_plugin(${name}): there are no sources")
  endif()
  add_library(${name} MODULE ${ARGN})
  target_link_libraries(${name} PRIVATE kxPAL::kxPAL)
  # Nothing but the entry function leaves it: plug-ins do not see each other's symbols.
  set_target_properties(${name} PROPERTIES PREFIX "" SUFFIX ".so" CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
endfunction()
