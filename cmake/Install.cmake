# What `cmake --install` puts where: headers, library, pkg-config file and CMake package.

# The library goes to <prefix>/lib on every system, unless whoever packages it asks for another place.
if(PROJECT_IS_TOP_LEVEL AND NOT DEFINED CMAKE_INSTALL_LIBDIR)
  set(CMAKE_INSTALL_LIBDIR lib CACHE PATH "Where the library goes, below the prefix")
endif()
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)
foreach(folder IN ITEMS CMAKE_INSTALL_LIBDIR CMAKE_INSTALL_INCLUDEDIR)
  if(IS_ABSOLUTE "${${folder}}")
    message(FATAL_ERROR "${folder} is ${${folder}}: name a folder below the prefix, such as lib64. "
      "An installed tree can be moved, so its packages name no place outside of it.")
  endif()
endforeach()

# The headers of hosts. Stream_glib.h is private to the library's own sources, and stays out.
set(KXPAL_PUBLIC_HEADERS
  Application.h
  AsyncTcpServer.h
  Buffer.h
  Check.h
  Cond.h
  DateTime.h
  DeleteLaterEvent.h
  Dir.h
  EntryInfo.h
  Event.h
  EventQueue.h
  Export.h
  File.h
  HostAddress.h
  IStream.h
  IStreamReadHandler.h
  LogHandler.h
  Logger.h
  MulticastUdpSocket.h
  Murn.h
  Murn_c.h
  Mutex.h
  MutexLocker.h
  NetworkInterface.h
  NetworkInterfaceInfo.h
  Object.h
  Plugin.h
  PluginEntry.h
  Runnable.h
  Socket.h
  Stream.h
  TcpServer.h
  TcpSocket.h
  TcpStream.h
  Thread.h
  ThreadPool.h
  Timer.h
  UdpSocket.h
  kxClock.h)
list(TRANSFORM KXPAL_PUBLIC_HEADERS PREPEND "${kxPAL_SOURCE_DIR}/inc/")
install(FILES ${KXPAL_PUBLIC_HEADERS} DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/kxPAL")

install(TARGETS kxPAL_impl EXPORT kxPALTargets
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
  INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")

# Both packages find the rest from where they lie themselves, so an installed tree can be moved as a whole.
set(KXPAL_PKGCONFIG_DIR "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
file(RELATIVE_PATH KXPAL_PKGCONFIG_TO_PREFIX "/${KXPAL_PKGCONFIG_DIR}" "/")
cmake_path(SET KXPAL_PKGCONFIG_TO_PREFIX NORMALIZE "${KXPAL_PKGCONFIG_TO_PREFIX}")
configure_file("${CMAKE_CURRENT_LIST_DIR}/kxPAL.pc.in" "${kxPAL_BINARY_DIR}/kxPAL.pc" @ONLY)
install(FILES "${kxPAL_BINARY_DIR}/kxPAL.pc" DESTINATION "${KXPAL_PKGCONFIG_DIR}")

set(KXPAL_PACKAGE_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/kxPAL")
configure_package_config_file("${CMAKE_CURRENT_LIST_DIR}/kxPALConfig.cmake.in" "${kxPAL_BINARY_DIR}/kxPALConfig.cmake"
  INSTALL_DESTINATION "${KXPAL_PACKAGE_DIR}")
# Before 1.0 each minor version may change the interface.
write_basic_package_version_file("${kxPAL_BINARY_DIR}/kxPALConfigVersion.cmake" COMPATIBILITY SameMinorVersion)
install(FILES "${kxPAL_BINARY_DIR}/kxPALConfig.cmake" "${kxPAL_BINARY_DIR}/kxPALConfigVersion.cmake"
  "${CMAKE_CURRENT_LIST_DIR}/kxPALPlugin.cmake"
  DESTINATION "${KXPAL_PACKAGE_DIR}")
install(EXPORT kxPALTargets NAMESPACE kxPAL:: DESTINATION "${KXPAL_PACKAGE_DIR}")
