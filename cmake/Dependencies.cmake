# The third-party libraries the engine links, gathered in one interface
# target so that every part of the build sees the same set.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
pkg_check_modules(FFMPEG REQUIRED IMPORTED_TARGET libavformat libavcodec libswresample libavutil libavfilter)
pkg_check_modules(SOUNDTOUCH REQUIRED IMPORTED_TARGET soundtouch)
pkg_check_modules(SOXR REQUIRED IMPORTED_TARGET soxr)
pkg_check_modules(PORTAUDIO REQUIRED IMPORTED_TARGET portaudio-2.0)
pkg_check_modules(EBUR128 REQUIRED IMPORTED_TARGET libebur128)
find_path(LAME_INCLUDE_DIR lame/lame.h REQUIRED)
find_library(LAME_LIBRARY mp3lame REQUIRED)

# FFmpeg and PortAudio are not linked: the engine opens them the first time
# it needs them (src/platform/LazyLibraries.h), so only their headers are
# used here.
add_library(wavoryx_deps INTERFACE)
target_link_libraries(wavoryx_deps INTERFACE
  PkgConfig::SOUNDTOUCH PkgConfig::SOXR PkgConfig::EBUR128 ${LAME_LIBRARY} Threads::Threads m ${CMAKE_DL_LIBS})
target_include_directories(wavoryx_deps INTERFACE ${LAME_INCLUDE_DIR}
  $<TARGET_PROPERTY:PkgConfig::FFMPEG,INTERFACE_INCLUDE_DIRECTORIES>
  $<TARGET_PROPERTY:PkgConfig::PORTAUDIO,INTERFACE_INCLUDE_DIRECTORIES>)
target_compile_options(wavoryx_deps INTERFACE
  $<TARGET_PROPERTY:PkgConfig::FFMPEG,INTERFACE_COMPILE_OPTIONS>
  $<TARGET_PROPERTY:PkgConfig::PORTAUDIO,INTERFACE_COMPILE_OPTIONS>)

# Requires.private of the pkg-config file, for static consumers.
set(WAVORYX_PC_REQUIRES_PRIVATE "soundtouch soxr libebur128")
set(WAVORYX_PC_LIBS_PRIVATE "-lmp3lame -ldl -lpthread -lm")
