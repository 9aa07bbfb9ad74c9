# The library zelto, compiled once and linked as
#   zelto         what is installed: an archive or, with BUILD_SHARED_LIBS, a shared library;
#   zelto_static  what twigctl and the tests link: always an archive, of which the linker takes only
#                 what is used, so that the program stays small and starts fast.
file(GLOB_RECURSE zelto_sources CONFIGURE_DEPENDS
  conf/*.cpp fsutil/*.cpp exec/*.cpp site/*.cpp support/*.cpp)
add_library(zelto_objects OBJECT ${zelto_sources})
set_target_properties(zelto_objects PROPERTIES
  CXX_VISIBILITY_PRESET hidden
  VISIBILITY_INLINES_HIDDEN ON)
target_include_directories(zelto_objects PRIVATE ${PROJECT_SOURCE_DIR})
target_link_libraries(zelto_objects PRIVATE Boost::filesystem LibXml2::LibXml2 zelto_build_flags)

# What compiling against the library takes, here and elsewhere. Site paths depend on how this
# version of Boost.Filesystem iterates and appends; never let another one slip in.
set(zelto_definitions BOOST_FILESYSTEM_VERSION=3)
# What only our own code is held to.
set(zelto_own_definitions _GNU_SOURCE BOOST_FILESYSTEM_NO_DEPRECATED)
target_compile_definitions(zelto_objects PRIVATE ${zelto_definitions} ${zelto_own_definitions})

function(zelto_library name boost)
  add_library(${name} ${ARGN} $<TARGET_OBJECTS:zelto_objects>)
  set_target_properties(${name} PROPERTIES LINKER_LANGUAGE CXX)
  target_compile_features(${name} INTERFACE cxx_std_20)
  target_compile_definitions(${name} INTERFACE
    ${zelto_definitions} $<BUILD_INTERFACE:${zelto_own_definitions}>)
  target_include_directories(${name} INTERFACE
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_link_libraries(${name} PUBLIC ${boost} PRIVATE LibXml2::LibXml2)
endfunction()

zelto_library(zelto Boost::filesystem)
add_library(zelto::zelto ALIAS zelto)

set(boost_of_programs Boost::filesystem)
if(ZELTO_STATIC_RUNTIME)
  find_library(ZELTO_BOOST_FILESYSTEM_ARCHIVE libboost_filesystem.a
    HINTS ${Boost_LIBRARY_DIRS} REQUIRED)
  set(boost_of_programs Boost::headers ${ZELTO_BOOST_FILESYSTEM_ARCHIVE})
endif()
zelto_library(zelto_static "${boost_of_programs}" STATIC)

if(BUILD_SHARED_LIBS)
  set(exports ${PROJECT_SOURCE_DIR}/cmake/exports.map)
  set_target_properties(zelto PROPERTIES
    VERSION ${PROJECT_VERSION}
    # Until 1.0.0 every minor version may break its callers.
    SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}
    LINK_DEPENDS ${exports})
  target_link_options(zelto PRIVATE -Wl,--version-script=${exports})
  target_link_libraries(zelto PRIVATE $<BUILD_INTERFACE:zelto_build_flags>)
endif()
