# yfs_layer(NAME SOURCES...): one folder of the library as the object library yfs_NAME.
function(yfs_layer name)
  add_library(yfs_${name} OBJECT ${ARGN})
  target_include_directories(yfs_${name} PUBLIC ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
  set_target_properties(yfs_${name} PROPERTIES POSITION_INDEPENDENT_CODE ON CXX_VISIBILITY_PRESET hidden
                                               VISIBILITY_INLINES_HIDDEN ON)
  set_property(GLOBAL APPEND PROPERTY YFS_LAYERS yfs_${name})
endfunction()
