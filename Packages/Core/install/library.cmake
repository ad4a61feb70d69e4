# What an installation gives to programs outside this tree: the headers, one archive and how to find both with CMake
# (find_package(MolvaneCore), target Molvane::Core) and with pkg-config (MolvaneCore). Component: core-library.

include(CMakePackageConfigHelpers)
find_package(ICU 72 REQUIRED COMPONENTS uc)
pkg_check_modules(UUID REQUIRED IMPORTED_TARGET uuid)

# The archive carries what Core needs of the packages below it, and nothing that would need a further library.
# AccountDirectory is left out for the XML parser that it needs. ./scripts/check-installed-library tells when something
# is missing here.
set(needed_sources
  Base/.*/(Characters|Date|Json|JsonCoding|JsonNumber|JsonValue|NSError|PathText|Text|UnicodeLibrary|Utf8|Uuid)
  Platform/.*/(Deadline|DirectoryHandle|FileDescriptor|FileIdentity|LockFile|SafeFile|SecureRandom|StandardPath|Users))
set(needed_headers
  Base/CaseError.hpp Base/Characters.hpp Base/Date.hpp Base/HashCombine.hpp Base/Json.hpp Base/JsonCoding.hpp
  Base/JsonMembers.hpp Base/Mutex.hpp Base/Uuid.hpp)
set(own_headers
  LocalAccountPolicy.hpp LocalAccounts.hpp PathAllowlist.hpp PasteGuard.hpp Scheduling/Calendar.hpp
  Scheduling/Schedule.hpp Scheduling/ScheduledTask.hpp Scheduling/ScheduleFile.hpp Scheduling/ScheduleStore.hpp Scheduling/TimeZone.hpp)

list(JOIN needed_sources "|" needed)
add_library(MolvaneCoreLibrary STATIC
  "$<FILTER:$<TARGET_OBJECTS:Core>,EXCLUDE,/AccountDirectory\\.cpp\\.o$>"
  "$<FILTER:$<TARGET_OBJECTS:Base>;$<TARGET_OBJECTS:Platform>,INCLUDE,/(${needed})\\.cpp\\.o$>")
set_target_properties(MolvaneCoreLibrary PROPERTIES
  OUTPUT_NAME MolvaneCore
  EXPORT_NAME Core
  LINKER_LANGUAGE CXX
  ARCHIVE_OUTPUT_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}/install")
target_compile_features(MolvaneCoreLibrary INTERFACE cxx_std_20)
target_include_directories(MolvaneCoreLibrary INTERFACE "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/molvane>")
target_link_libraries(MolvaneCoreLibrary PRIVATE ICU::uc PkgConfig::UUID Threads::Threads ${CMAKE_DL_LIBS})

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/MolvaneCore")
set(pkgconfig_dir "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
file(RELATIVE_PATH prefix_from_pkgconfig "/${pkgconfig_dir}" "/")
configure_package_config_file("${CMAKE_CURRENT_LIST_DIR}/MolvaneCoreConfig.cmake.in" install/MolvaneCoreConfig.cmake
  INSTALL_DESTINATION "${package_dir}")
write_basic_package_version_file(install/MolvaneCoreConfigVersion.cmake COMPATIBILITY SameMajorVersion)
configure_file("${CMAKE_CURRENT_LIST_DIR}/MolvaneCore.pc.in" install/MolvaneCore.pc @ONLY)
configure_file("${CMAKE_CURRENT_LIST_DIR}/Version.hpp.in" install/Version.hpp @ONLY)

install(TARGETS MolvaneCoreLibrary EXPORT MolvaneCore
  ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT core-library)
install(EXPORT MolvaneCore NAMESPACE Molvane:: FILE MolvaneCoreTargets.cmake
  DESTINATION "${package_dir}" COMPONENT core-library)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/install/MolvaneCoreConfig.cmake"
  "${CMAKE_CURRENT_BINARY_DIR}/install/MolvaneCoreConfigVersion.cmake"
  DESTINATION "${package_dir}" COMPONENT core-library)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/install/MolvaneCore.pc"
  DESTINATION "${pkgconfig_dir}" COMPONENT core-library)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/install/Version.hpp"
  DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/molvane/Core" COMPONENT core-library)

foreach(header IN LISTS needed_headers)
  list(APPEND headers "${PROJECT_SOURCE_DIR}/Packages/${header}")
endforeach()
foreach(header IN LISTS own_headers)
  list(APPEND headers "${CMAKE_CURRENT_SOURCE_DIR}/${header}")
endforeach()
foreach(header IN LISTS headers)
  cmake_path(RELATIVE_PATH header BASE_DIRECTORY "${PROJECT_SOURCE_DIR}/Packages" OUTPUT_VARIABLE place)
  cmake_path(GET place PARENT_PATH place)
  install(FILES "${header}" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/molvane/${place}" COMPONENT core-library)
endforeach()
