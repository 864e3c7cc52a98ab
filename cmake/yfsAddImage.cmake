# yfs_add_image(TARGET SET_FILE [OUTPUT_DIRECTORY DIR])
#
# A target, made with "all", that builds the images and tables of a set by 'yfs build' into DIR (TARGET in the binary
# folder, if not told). It is made again when the set file or any file that it names changes. YFS_TOOL is the program.
function(yfs_add_image target set_file)
  cmake_parse_arguments(PARSE_ARGV 2 arg "" "OUTPUT_DIRECTORY" "")
  find_program(YFS_TOOL yfs HINTS "${YFS_TOOL_HINT}" REQUIRED DOC "The yfs command")
  set(folder ${CMAKE_CURRENT_BINARY_DIR}/${target})
  if(arg_OUTPUT_DIRECTORY)
    cmake_path(ABSOLUTE_PATH arg_OUTPUT_DIRECTORY BASE_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR} OUTPUT_VARIABLE folder)
  endif()
  cmake_path(ABSOLUTE_PATH set_file BASE_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR})

  # The outputs, by the names that the set gives them; ninja wants the first one first in the depfile too.
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${set_file})
  file(READ ${set_file} set)
  set(outputs "")
  foreach(key ftbl velor yfs efs zonc)
    string(JSON name ERROR_VARIABLE absent GET "${set}" ${key})
    if(absent STREQUAL "NOTFOUND")
      cmake_path(GET name FILENAME name)
      list(APPEND outputs ${folder}/${name})
    endif()
  endforeach()
  list(APPEND outputs ${folder}/yfs.json)

  # What would not change is left alone by the tool, and has to be newer than the inputs all the same.
  add_custom_command(
    OUTPUT ${outputs}
    COMMAND ${YFS_TOOL} build --set ${set_file} -o ${folder} --depfile ${folder}.d
    COMMAND ${CMAKE_COMMAND} -E touch ${outputs}
    DEPENDS ${set_file} ${YFS_TOOL}
    DEPFILE ${folder}.d
    COMMENT "Building the images of ${set_file}"
    VERBATIM)
  add_custom_target(${target} ALL DEPENDS ${outputs})
endfunction()
