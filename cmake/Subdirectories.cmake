# Adds every immediate subfolder of the current source folder that has a
# CMakeLists.txt, in name order, so that an area can be added without
# touching its parent. Folders without one are passed to `fallback` (a
# function name, or empty).
function(wavoryx_add_area_folders fallback)
  file(GLOB _dirs LIST_DIRECTORIES true ${CMAKE_CURRENT_SOURCE_DIR}/*)
  list(SORT _dirs)
  foreach(_dir IN LISTS _dirs)
    if(IS_DIRECTORY ${_dir} AND EXISTS ${_dir}/CMakeLists.txt)
      add_subdirectory(${_dir})
    elseif(IS_DIRECTORY ${_dir} AND fallback)
      cmake_language(CALL ${fallback} ${_dir})
    endif()
  endforeach()
endfunction()
