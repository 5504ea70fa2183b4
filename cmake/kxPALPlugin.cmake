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
  # Of its own code nothing but the entry function leaves it.
  set_target_properties(${name} PROPERTIES
    PREFIX "" SUFFIX ".so" C_VISIBILITY_PRESET hidden CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  # g++ marks some template instances, those of std::make_shared among them, as the only ones of a process. A shared
  # object that has one is never closed.
  target_compile_options(${name} PRIVATE "$<$<COMPILE_LANG_AND_ID:CXX,GNU>:-fno-gnu-unique>")
endfunction()
